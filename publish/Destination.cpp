#include "publish/Destination.h"

#include "publish/FolderDestination.h"
#include "publish/Outcome.h"
#include "publish/SftpDestination.h"

#include <QDir>
#include <QRegularExpression>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSftp = "sftp://"_L1;

} // namespace

QString Destination::checkedAddress(const QString &address)
{
    if (!address.contains("://"_L1))
        return QDir(address).absolutePath();
    // Nothing of it may be an option of a program, and no password belongs here.
    static const QRegularExpression kForm(
        u"^sftp://(?:[A-Za-z0-9_][A-Za-z0-9._-]*@)?"
        u"(?:[A-Za-z0-9](?:[A-Za-z0-9.-]*[A-Za-z0-9])?|\\[[0-9A-Fa-f:.]+\\])"
        u"(?::[0-9]{1,5})?(?:/[^/?#\"\\\\*\\[\\x00-\\x1f\\x7f]+)+$"_s);
    if (!kForm.match(address).hasMatch() || !QUrl(address).isValid()) {
        throw Problem{Outcome::Refused,
                      u"« %1 » n'est pas une destination : il faut un dossier, ou "
                      u"sftp://NOM@HÔTE/DOSSIER ; rien n'a été changé."_s.arg(address)};
    }
    return address;
}

std::unique_ptr<Destination> Destination::open(const QString &address, const QString &scratch)
{
    if (address.startsWith(kSftp))
        return std::make_unique<SftpDestination>(QUrl(address), scratch);
    return std::make_unique<FolderDestination>(address);
}

/// To send it once more would not help.
Problem Destination::changedSincePrepared(const QString &source)
{
    return {Outcome::BrokenOff, u"« %1 » n'est plus tel qu'il a été préparé : à préparer et à "
                                u"mettre en ligne de nouveau."_s.arg(source)};
}
