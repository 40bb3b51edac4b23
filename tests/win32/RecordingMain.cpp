// Stands in for a program that the launcher starts on Windows: PowerShell, the game, the updater
// program. Copied under that program's name to its place, it records beside itself how it was
// called, then does what the file beside it says (tests/win32/RecordingProgram.h). Under the name
// of PowerShell it carries out Expand-Archive.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <QStringList>

#include <private/qzipreader_p.h>

#include <cstdio>
#include <optional>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr DWORD kLongestHang = 120'000; // ms, so that no forgotten program stays for good

int complain(const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    _setmode(_fileno(stderr), _O_BINARY); // no carriage returns
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    return 1;
}

bool record(const QString &self)
{
    QSaveFile file(self + u".record"_s);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(QString::fromWCharArray(GetCommandLineW()).toUtf8() + '\n');
    file.write(QDir::currentPath().toUtf8() + '\n');
    return file.commit();
}

QString behaviour(const QString &self)
{
    QFile file(self + u".does"_s);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// What the parent sees of a program that touched memory it must not. The real thing would start
/// whatever debugger the machine has.
void crash()
{
    TerminateProcess(GetCurrentProcess(), DWORD(EXCEPTION_ACCESS_VIOLATION));
}

/// Splits a command as PowerShell does. Text right behind a closing quote would be an argument of
/// its own there, which no parameter of Expand-Archive accepts: nothing is returned then.
std::optional<QStringList> words(const QString &command)
{
    QStringList result;
    qsizetype at = 0;
    while (at < command.size()) {
        if (command[at] == u' ') {
            ++at;
            continue;
        }
        if (command[at] != u'\'') {
            const qsizetype end = command.indexOf(u' ', at);
            result.append(command.mid(at, end < 0 ? -1 : end - at));
            at = end < 0 ? command.size() : end;
            continue;
        }
        QString text;
        for (++at; at < command.size(); ++at) {
            if (command[at] != u'\'')
                text += command[at];
            else if (command.mid(at + 1, 1) == u"'")
                text += command[++at];
            else
                break;
        }
        ++at;
        if (at > command.size() || (at < command.size() && command[at] != u' '))
            return std::nullopt;
        result.append(text);
    }
    return result;
}

QByteArray contentOf(const QZipReader &reader, const QZipReader::FileInfo &entry)
{
    // Names come out of the list as UTF-8, but are looked up as if they were in the local encoding.
    return reader.fileData(QString::fromLocal8Bit(entry.filePath.toUtf8()));
}

bool beginsLikeAnArchive(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(2) == "PK";
}

int expandArchive(const QString &archive, const QString &destination)
{
    QZipReader reader(archive);
    if (!QFileInfo(archive).isFile() || !reader.isReadable())
        return complain(u"Expand-Archive : Le chemin d'accès « %1 » n'existe pas."_s.arg(archive));
    if (!beginsLikeAnArchive(archive))
        return complain(u"Expand-Archive : « %1 » n'est pas une archive."_s.arg(archive));

    const QDir folder(destination);
    for (const QZipReader::FileInfo &entry : reader.fileInfoList()) {
        const QString target = folder.filePath(entry.filePath);
        if (entry.isDir) {
            QDir().mkpath(target);
            continue;
        }
        QDir().mkpath(QFileInfo(target).path());
        QFile file(target);
        const QByteArray content = contentOf(reader, entry);
        if (content.size() != entry.size || !file.open(QIODevice::WriteOnly) ||
            file.write(content) != content.size())
            return complain(u"Expand-Archive : « %1 » ne peut pas être écrit."_s.arg(target));
    }
    return 0;
}

/// powershell -NoProfile -Command WORDS...
int runAsPowerShell(const QStringList &arguments)
{
    if (arguments.mid(0, 2) != QStringList{u"-NoProfile"_s, u"-Command"_s})
        return complain(u"powershell : arguments inattendus"_s);
    const auto command = words(arguments.mid(2).join(u' '));
    if (!command)
        return complain(u"Expand-Archive : Impossible de trouver un paramètre positionnel."_s);
    if (command->size() != 6 || command->at(0) != u"Expand-Archive" || command->at(1) != u"-Path" ||
        command->at(3) != u"-DestinationPath" || command->at(5) != u"-Force")
        return complain(u"powershell : commande inattendue"_s);
    return expandArchive(command->at(2), command->at(4));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QString self = QCoreApplication::applicationFilePath();
    if (!record(self))
        return complain(u"Impossible d'écrire à côté de %1"_s.arg(self));

    const QString does = behaviour(self);
    if (does == u"crash")
        crash();
    if (does == u"hang")
        Sleep(kLongestHang);
    if (does.startsWith(u"fail "))
        return complain(does.mid(5));
    if (QFileInfo(self).completeBaseName() == u"powershell" && does != u"nothing")
        return runAsPowerShell(QCoreApplication::arguments().mid(1));
    return 0;
}
