#pragma once

#include "publish/CentralDirectory.h"
#include "publish/Findings.h"
#include "publish/Patience.h"
#include "publish/SiteReader.h"

#include <QJsonDocument>
#include <QString>
#include <QStringList>

#include <optional>

/// The players that a site is for.
struct Audience
{
    QStringList versions; ///< of the launchers that they have
    QString target;       ///< their system
    QStringList keys;     ///< that sign their updates, where they are known
    QString home;         ///< the address that their launchers are built for, or are updated from
};

/// Looks over a live site: the way there, what lies there, and what the launcher makes of it.
class Verifier
{
public:
    /// A site at another address than the audience's home may be a rehearsal of that one: a
    /// launcher that it offers there is looked for here.
    Verifier(const QString &baseUrl, const Audience &audience, const Patience &patience = {});

    /// Throws a Problem where nobody answers (Outcome::Unreachable), and where this machine is what
    /// is in the way (Outcome::Disk): what was found until then stays. With `whole` the client is
    /// downloaded, unpacked and verified, and the offered launcher read.
    void run(bool whole);

    const Findings &findings() const { return m_findings; }
    /// One line for each version in service: what its launcher sees. One more, where the client was
    /// to be installed and could not be.
    const QStringList &sights() const { return m_sights; }

private:
    struct SeenArchive
    {
        qint64 length = -1; ///< as announced
        std::optional<CentralDirectory> directory;
    };

    QUrl url(const QString &place) const;
    void checkAnswer(const QString &place, const SiteAnswer &answer);
    std::optional<QJsonDocument> readJson(const QString &place);
    SeenArchive readArchive(const QString &place, const QUrl &url, const QString &damaged);
    std::optional<CentralDirectory> readDirectory(const QString &place, const QUrl &url,
                                                  const SiteAnswer &head, const QString &damaged);

    void checkReachable();
    void checkState();
    void checkNews();
    void checkLauncher();
    void checkLauncherFiles(const CentralDirectory &directory);
    void checkClient();
    void checkManifest();
    void checkSums(const QJsonArray &files);
    void checkClientArchive(const CentralDirectory &directory);
    void checkEntries(const CentralDirectory &directory);
    void checkPlaces(const QStringList &names);
    void compare(const QStringList &listed, const QStringList &archived);
    void checkMissing();
    void lookAsLaunchers();
    void readLauncher();
    void readSignedLauncher(const QString &path);
    void installClient();
    bool mayUnpack(const QString &archive, const QString &folder);
    bool isSafeToInstall();
    void checkRoom(const QString &folder) const;

    QString m_baseUrl;
    Audience m_audience;
    Patience m_patience;
    SiteReader m_reader;
    Findings m_findings;
    QStringList m_sights;
    struct
    {
        QString version; ///< empty where there is none to look at
        QUrl archive;
        qint64 length = -1;  ///< of the archive, as announced
        bool isOurs = false; ///< the audience's keys have signed it
    } m_launcher;
    struct
    {
        qint64 length = -1;       ///< of the archive, as announced
        qint64 size = 0;          ///< packed and unpacked, as far as it is known
        bool isRead = false;      ///< the list at the archive's end
        bool hasLinks = false;    ///< in the archive
        bool hasManifest = false; ///< one in which there are files
        QStringList listed;       ///< by the manifest, each once
    } m_client;
};
