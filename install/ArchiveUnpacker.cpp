#include "install/ArchiveUnpacker.h"

#include <QStandardPaths>

using namespace Qt::Literals::StringLiterals;

namespace {

// The paths stand between single quotes as they are; one that holds a quote breaks the command,
// and PowerShell's complaint is shown.
const auto kExpandArchive = u"Expand-Archive -Path '%1' -DestinationPath '%2' -Force"_s;

const auto kUnzip = u"unzip"_s;
/// Its exit code where something was odd, an absolute path say. It has unpacked the rest, and other
/// unpackers take that for a success.
constexpr int kWarningOfUnzip = 1;

bool hasProgram(const QString &name)
{
    return !QStandardPaths::findExecutable(name).isEmpty();
}

bool hasPowerShell()
{
#ifdef Q_OS_WIN
    return true;
#else
    return hasProgram(u"powershell"_s);
#endif
}

/// In a session without a UTF-8 locale bsdtar refuses every name that holds an accent.
QProcessEnvironment withUtf8Names()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    return environment;
}

} // namespace

UnpackCommand unpackCommand(const QString &archivePath, const QString &destination)
{
    if (hasPowerShell()) {
        const QString command = kExpandArchive.arg(archivePath).arg(destination);
        return {u"powershell"_s,
                {u"-NoProfile"_s, u"-Command"_s, command},
                QProcessEnvironment(QProcessEnvironment::InheritFromParent)};
    }
    if (!hasProgram(kUnzip) && hasProgram(u"bsdtar"_s)) {
        return {
            u"bsdtar"_s, {u"-x"_s, u"-f"_s, archivePath, u"-C"_s, destination}, withUtf8Names()};
    }
    return {kUnzip, {u"-q"_s, u"-o"_s, archivePath, u"-d"_s, destination}, withUtf8Names()};
}

bool hasUnpacked(const QString &program, int exitCode, QProcess::ExitStatus exitStatus)
{
    if (exitStatus != QProcess::NormalExit)
        return false;
    return exitCode == 0 || (exitCode == kWarningOfUnzip && program == kUnzip);
}
