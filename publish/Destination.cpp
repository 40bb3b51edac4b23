#include "publish/Destination.h"

#include "publish/FolderDestination.h"
#include "publish/Outcome.h"
#include "publish/SftpDestination.h"

#include <QDir>
#include <QRegularExpression>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace {

/// Nothing of it may be an option of a program, and no password belongs here.
QRegularExpressionMatch sftpParts(const QString &address)
{
    static const QRegularExpression kForm(
        u"^sftp://(?<host>(?:[A-Za-z0-9_][A-Za-z0-9._-]*@)?"
        u"(?:[A-Za-z0-9_](?:[A-Za-z0-9._-]*[A-Za-z0-9_])?|\\[[0-9A-Fa-f:.]+\\]))"
        u"(?::(?<port>[0-9]{1,5}))?/(?<folder>/?(?:[^/?#\"\\\\*\\[\\x00-\\x1f\\x7f]+/?)+)$"_s);
    return kForm.match(address);
}

bool isRemoteForm(const QString &address)
{
    // As scp takes it; one letter is a drive of Windows.
    static const QRegularExpression kForm(u"^[^/\\\\]{2,}:"_s);
    return kForm.match(address).hasMatch();
}

} // namespace

QString Destination::checkedAddress(const QString &address)
{
    if (isFolder(address) && !address.isEmpty() && !isRemoteForm(address))
        return QDir(address).absolutePath();
    const QRegularExpressionMatch parts = sftpParts(address);
    if (!parts.hasMatch() || parts.captured(u"port"_s).toInt() > 0xffff) {
        throw Problem{Outcome::Refused,
                      u"« %1 » n'est pas une destination : il faut un dossier, ou "
                      u"sftp://NOM@HÔTE/DOSSIER ; rien n'a été changé."_s.arg(address)};
    }
    return address.endsWith(u'/') ? address.chopped(1) : address;
}

bool Destination::isFolder(const QString &checkedAddress)
{
    return !checkedAddress.contains("://"_L1);
}

std::unique_ptr<Destination> Destination::open(const QString &checkedAddress,
                                               const QString &scratch, bool isKnown)
{
    if (isFolder(checkedAddress))
        return std::make_unique<FolderDestination>(checkedAddress, isKnown);
    const QRegularExpressionMatch parts = sftpParts(checkedAddress);
    const QString folder = QUrl::fromPercentEncoding((u'/' + parts.captured(u"folder"_s)).toUtf8());
    return std::make_unique<SftpDestination>(
        SftpDestination::Place{parts.captured(u"host"_s), parts.captured(u"port"_s).toInt(),
                               folder},
        scratch, isKnown);
}

Problem Destination::gone(const QString &place)
{
    return {Outcome::Refused, u"« %1 » n'est plus là, ou ne contient plus de site : un disque qui "
                              u"n'est pas monté ? Pour y envoyer tout de nouveau, créez-y un "
                              u"dossier « publications » ; rien n'a été changé."_s.arg(place)};
}

/// To send it once more would not help.
Problem Destination::changedSincePrepared(const QString &source)
{
    return {Outcome::BrokenOff, u"« %1 » n'est plus tel qu'il a été préparé : à préparer et à "
                                u"mettre en ligne de nouveau."_s.arg(source)};
}

QString Destination::nameBelow(const QString &folder, const QString &path)
{
    const QString start = folder.endsWith(u'/') ? folder : folder + u'/';
    return path.startsWith(start) ? path.sliced(start.size()) : path;
}

void Destination::checkRemovable(const QString &name)
{
    if (name.isEmpty() || name.startsWith(u'/'))
        throw Problem{Outcome::Disk, u"« %1 » n'est pas à supprimer."_s.arg(name)};
}
