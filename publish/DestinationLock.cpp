#include "publish/DestinationLock.h"

#include "publish/Destination.h"
#include "publish/Interruption.h"
#include "publish/Outcome.h"
#include "publish/Workshop.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QRegularExpression>
#include <QSysInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kStart = ".verrou-"_L1;

QStringList locksOf(Destination &destination)
{
    return destination.entries(QString()).keys().filter(
        QRegularExpression(u'^' + QRegularExpression::escape(kStart)));
}

/// The same workshop at the same place of the same machine: there are copies of workshops, and
/// machines that are copies of each other.
QString ownEnd(Workshop &workshop)
{
    constexpr qsizetype kLength = 16;
    const QByteArray place = QSysInfo::machineUniqueId() + '\n' +
                             workshop.path(QString()).toUtf8() + '\n' + workshop.id().toUtf8();
    const QByteArray sum = QCryptographicHash::hash(place, QCryptographicHash::Sha256).toHex();
    return u'-' + QString::fromLatin1(sum.left(kLength));
}

/// For people: when, on which machine.
QString newName(const QString &end)
{
    static const QRegularExpression kOthers(u"[^A-Za-z0-9.]+"_s);
    return kStart + QDateTime::currentDateTime().toString(u"yyyy-MM-dd-HH'h'mm-"_s) +
           QSysInfo::machineHostName().replace(kOthers, u"-"_s) + end;
}

} // namespace

DestinationLock::DestinationLock(Destination &destination, Workshop &workshop)
    : m_destination(destination)
{
    const QString end = ownEnd(workshop);
    QStringList locks = locksOf(destination);
    if (locks.isEmpty())
        destination.makeFolder(newName(end));
    // Of two at once each sees the other's now.
    locks = locks.isEmpty() ? locksOf(destination) : locks;
    for (const QString &lock : std::as_const(locks)) {
        if (lock.endsWith(end))
            m_name = lock;
    }
    locks.removeAll(m_name);
    if (m_name.isEmpty() && locks.isEmpty()) {
        throw Problem{Outcome::Refused,
                      u"Rien ne peut être créé dans la destination : la place ou les droits y "
                      u"manquent ; rien n'a été changé."_s};
    }
    if (locks.isEmpty())
        return;
    if (!m_name.isEmpty())
        destination.removeEmptyFolder(m_name);
    throw Problem{Outcome::Refused,
                  u"Un autre atelier envoie vers cette destination (« %1 » : date et machine) ; "
                  u"rien n'a été changé. Si plus personne n'envoie, effacez là-bas ce dossier "
                  u"vide."_s.arg(locks.first())};
}

DestinationLock::~DestinationLock()
{
    // Whoever is interrupted leaves none behind.
    const Interruption::PutOff putOff;
    try {
        m_destination.removeEmptyFolder(m_name);
    } catch (const Problem &) {
        // Whoever lost the connection cannot; this workshop's next run does not mind.
    }
}

void DestinationLock::check() const
{
    if (!locksOf(m_destination).contains(m_name)) {
        throw Problem{Outcome::Disk, u"« %1 » a été effacé là-bas : un autre atelier envoie "
                                     u"peut-être."_s.arg(m_name)};
    }
}
