// Stands in for PowerShell: without a script it carries out Expand-Archive, with Qt's reader of zip
// archives, which is no part of Qt's public interface. The launcher does not use it.

#include "tests/support/StandInProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <private/qzipreader_p.h>

#include <cstdio>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace {

int complain(const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    return 1;
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
    if (const std::optional<int> exitCode = StandInProgram::run(argc, argv))
        return *exitCode;
    const QCoreApplication application(argc, argv);
    return runAsPowerShell(QCoreApplication::arguments().mid(1));
}
