#include "publish/SftpDestination.h"

#include "publish/Disk.h"
#include "publish/FaultPoints.h"
#include "publish/FileSum.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Progress.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto kTemporary = u".nouveau"_s;
/// The file that is on its way. It gets its name when it is whole and on the server's disk, so that
/// a file's name vouches for it.
const auto kPart = u".morceau"_s;

QString quoted(const QString &name)
{
    return SftpSession::quoted(name);
}

/// sftp writes bytes that its locale cannot show as "\303".
QByteArray unescaped(const QByteArray &text)
{
    QByteArray result;
    for (qsizetype i = 0; i < text.size(); ++i) {
        bool isNumber = false;
        const int byte = text.at(i) == '\\' ? text.mid(i + 1, 3).toInt(&isNumber, 8) : 0;
        result.append(isNumber ? static_cast<char>(byte) : text.at(i));
        i += isNumber ? 3 : 0;
    }
    return result;
}

bool isBeginning(const QString &part, const QString &whole)
{
    constexpr qint64 kChunk = qint64{1024} * 1024;
    QFile a(part);
    QFile b(whole);
    if (!a.open(QIODevice::ReadOnly) || !b.open(QIODevice::ReadOnly))
        return false;
    while (!a.atEnd()) {
        Interruption::check();
        const QByteArray chunk = a.read(kChunk);
        if (chunk.isEmpty() || chunk != b.read(chunk.size()))
            return false;
    }
    return true;
}

QString remotePath(const QStringList &lines)
{
    const QString start = u"Remote working directory: "_s;
    for (const QString &line : lines) {
        if (line.startsWith(start))
            return QString::fromUtf8(unescaped(line.sliced(start.size()).toUtf8()));
    }
    return {};
}

} // namespace

SftpDestination::SftpDestination(const Place &place, const QString &scratch, bool isKnown)
    : m_temporary(scratch + u"/.envoi-XXXXXX"_s)
    , m_session(place.host, place.port)
{
    // "sftp://host/~/site" lies in the home folder.
    QString folder = place.folder;
    if (folder == "/~"_L1)
        folder = u"."_s;
    else if (folder.startsWith("/~/"_L1))
        folder.remove(0, 3);
    const bool isThere = !m_session.run(u"-ls -lan "_s + quoted(folder)).isEmpty();
    if (isKnown && !isThere)
        throw gone(place.folder);
    if (!isThere)
        SftpDestination::makeFolder(folder);
    m_session.run(u"cd "_s + quoted(folder));
    m_folder = remotePath(m_session.run(u"pwd"_s));
}

/// Its name there is the end of its name here.
void SftpDestination::checkSendable(const QString &source) const
{
    SftpSession::quoted(source);
}

Destination::Entries SftpDestination::entries(const QString &folder)
{
    // Mode, links, owner and group, of which each may have blanks; size, time, name.
    static const QRegularExpression kForm(u"^([-dl])\\S* .*? ([0-9]+) [A-Z][a-z]{2} +[0-9]{1,2} +"
                                          u"(?:[0-9]{2}:[0-9]{2}|[0-9]{4}) (.+)$"_s);
    Entries entries;
    const QString place = folder.isEmpty() ? u"."_s : folder;
    const QStringList lines = m_session.run(u"-ls -lan "_s + quoted(place));
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = kForm.match(line);
        const QByteArray path = unescaped(match.captured(3).toUtf8());
        const QString name = QString::fromUtf8(path.mid(path.lastIndexOf('/') + 1));
        if (!match.hasMatch() || name == u'.' || name == ".."_L1)
            continue;
        const QChar type = match.captured(1).at(0);
        const Entry::Kind kind = type == u'd'   ? Entry::Folder
                                 : type == u'l' ? Entry::Link
                                                : Entry::File;
        entries.insert(name, {kind, match.captured(2).toLongLong()});
    }
    return entries;
}

bool SftpDestination::fetch(const QString &name, const std::function<void(qint64)> &moved)
{
    QFile::remove(fetched());
    m_session.transfer(u"-get -p %1 %2"_s.arg(quoted(name), quoted(fetched())), moved);
    return QFile::exists(fetched());
}

std::optional<QByteArray> SftpDestination::read(const QString &name)
{
    if (!fetch(name))
        return {};
    return Disk::read(fetched());
}

std::optional<QDateTime> SftpDestination::modified(const QString &name)
{
    if (!fetch(name))
        return {};
    return QFileInfo(fetched()).lastModified();
}

/// The protocol could read a link, but the program does not offer it. It goes there and looks
/// around.
QString SftpDestination::target(const QString &link)
{
    const QString path =
        remotePath(m_session.run(u"-cd %1\npwd\ncd %2"_s.arg(quoted(link), quoted(m_folder))));
    if (path == m_folder)
        return {};
    return nameBelow(m_folder, path);
}

/// It would not have its name else: see send().
bool SftpDestination::isWhole(const QString &, const QByteArray &,
                              const std::function<void(qint64)> &)
{
    return true;
}

/// Every change passes here: see FaultPoints.h.
QStringList SftpDestination::change(const QString &command)
{
    PublishFaultPoints::next();
    return m_session.run(command);
}

void SftpDestination::put(const QString &options, const QString &source, const QString &name,
                          const std::function<void(qint64)> &moved)
{
    PublishFaultPoints::next();
    m_session.transfer(u"put %1 %2 %3"_s.arg(options, quoted(source), quoted(name)), moved);
}

/// Open to the web server, whatever the server wants of new folders.
void SftpDestination::makeFolder(const QString &name)
{
    change(u"-mkdir %1\n-chmod 755 %1"_s.arg(quoted(name)));
}

void SftpDestination::link(const QString &existing, const QString &name)
{
    change(u"-ln %1 %2"_s.arg(quoted(existing), quoted(name)));
}

void SftpDestination::send(const QString &source, const QString &name, const QByteArray &sum,
                           const std::function<void(qint64)> &sent)
{
    if (fileSum(source) != sum)
        throw changedSincePrepared(source);
    const qint64 size = QFileInfo(source).size();
    const qint64 begun = begunOf(source);
    qint64 told = begun;
    sent(begun);
    const auto tell = [&told, &sent, size](qint64 bytes) {
        const qint64 more = std::min(bytes, size - told);
        told += more;
        sent(more);
    };
    // Keeps time and rights (p), waits until it is on the server's disk (f), goes on at the end of
    // what is there (a), which it refuses where nothing is missing.
    if (begun == 0 || begun < size)
        put(begun > 0 ? u"-apf"_s : u"-pf"_s, source, kPart, tell);
    rename(kPart, name);
    sent(size - told);
}

/// How much of the file is there already. That is read back as a whole: a power cut over there may
/// have left anything in it, and nobody there can be asked for a sum. It costs what came through
/// once more, but downwards, which is seldom the slower way.
qint64 SftpDestination::begunOf(const QString &source)
{
    if (!std::exchange(m_mayHavePart, false))
        return 0;
    const qint64 size = entries(kPart).value(kPart).size;
    if (size == 0 || size > QFileInfo(source).size())
        return 0;
    try {
        Disk::checkRoom(m_temporary.path(), size);
    } catch (const Problem &) {
        return 0; // sent anew
    }
    Progress progress(u"Relecture de ce qui est arrivé"_s, size);
    const bool isGood = fetch(kPart, [&progress](qint64 bytes) { progress.advance(bytes); }) &&
                        isBeginning(fetched(), source);
    QFile::remove(fetched());
    return isGood ? size : 0;
}

void SftpDestination::write(const QString &name, const QByteArray &content)
{
    const QString source = m_temporary.filePath(u"a-envoyer"_s);
    Disk::write(source, content);
    replace(source, name);
}

void SftpDestination::replace(const QString &source, const QString &name)
{
    put(u"-pf"_s, source, name + kTemporary, [](qint64) {});
    rename(name + kTemporary, name);
}

void SftpDestination::pointTo(const QString &name, const QString &target)
{
    change(u"-rm %1\nln -s %2 %1"_s.arg(quoted(name + kTemporary), quoted(target)));
    rename(name + kTemporary, name);
}

/// In one step also where there is something already, if the server can; else it refuses.
void SftpDestination::rename(const QString &from, const QString &to)
{
    change(u"rename %1 %2"_s.arg(quoted(from), quoted(to)));
}

void SftpDestination::removeFile(const QString &name)
{
    checkRemovable(name);
    change(u"-rm "_s + quoted(name));
}

void SftpDestination::removeEmptyFolder(const QString &name)
{
    checkRemovable(name);
    change(u"-rmdir "_s + quoted(name));
}

void SftpDestination::removeTree(const QString &name)
{
    checkRemovable(name);
    const Entries inside = entries(name);
    for (auto entry = inside.begin(); entry != inside.end(); ++entry) {
        const QString path = name + u'/' + entry.key();
        if (entry->kind == Entry::Folder)
            removeTree(path);
        else
            removeFile(path);
    }
    removeEmptyFolder(name);
}

/// Each file was, when it was sent.
void SftpDestination::flush(const QString &)
{
    if (m_mayHavePart)
        removeFile(kPart); // nobody goes on with it any more
}
