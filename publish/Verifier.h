#pragma once

#include "publish/CentralDirectory.h"
#include "publish/Findings.h"
#include "publish/SiteReader.h"

#include <QJsonDocument>
#include <QString>
#include <QStringList>

#include <optional>

/// Looks over a live site: the way there, what lies there, and what the launcher makes of it.
class Verifier
{
public:
    /// `versions` are the launchers that players have, `target` is their system, `keys` those that
    /// sign their updates, where they are known.
    Verifier(const QString &baseUrl, const QStringList &versions, const QStringList &keys,
             const QString &target);

    /// Throws a Problem where nobody answers (Outcome::Unreachable), and where this machine is what
    /// is in the way (Outcome::Disk): what was found until then stays. With `whole` the client is
    /// downloaded, unpacked and verified, and the offered launcher read.
    void run(bool whole);

    const Findings &findings() const { return m_findings; }
    /// One line for each version in service: what its launcher sees.
    const QStringList &sights() const { return m_sights; }

private:
    QUrl url(const QString &place) const;
    void checkAnswer(const QString &place, const SiteAnswer &answer);
    std::optional<QJsonDocument> readJson(const QString &place);
    std::optional<CentralDirectory> readDirectory(const QString &place, const QUrl &url,
                                                  const QString &damaged);

    void checkReachable();
    void checkState();
    void checkNews();
    void checkClient();
    void checkLauncher();
    void checkLauncherFiles(const CentralDirectory &directory);
    void checkMissing();
    void checkSums(const QJsonArray &files);
    void checkArchive(const CentralDirectory &directory);
    void compare(const QStringList &listed, const QStringList &archived);
    void lookAsLaunchers();
    void readLauncher();
    void installClient();
    void checkRoom(const QString &folder) const;

    QString m_baseUrl;
    QStringList m_versions;
    QStringList m_keys;
    QString m_target;
    SiteReader m_reader;
    Findings m_findings;
    QStringList m_sights;
    struct
    {
        QString version; ///< empty where there is none to look at
        QUrl archive;
    } m_launcher;
    qint64 m_clientSize = 0; ///< packed and unpacked, as its archive has it
};
