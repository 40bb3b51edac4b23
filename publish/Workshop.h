#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QLockFile;

/// The operator's folder, from which a site is published. In it:
/// - publication.json: the site's address, the launcher versions that players have, the system they
///   run on, the public keys of their updates, where it is sent
/// - publications/NNNN/: complete sites ("generations"); files that are the same share their bytes
/// - brouillon: link to the generation that the next command starts from
/// - site: link to the generation that the web server serves (see Disk::kMakesLinks)
/// - etat/status.json: the server's state, apart from the generations, since it changes by itself
/// - empreintes.json, empreintes-envoi.json, lanceurs.json: see Fingerprints, SiteListing and
///   ServedLaunchers
class Workshop
{
public:
    /// Throws a Problem where `folder` is no workshop.
    explicit Workshop(const QString &folder);
    /// Makes one, with a first generation that has no client yet; where there are generations
    /// already, whose settings were lost, they stay as they are. `keys` are those that launchers
    /// are signed with, `target` is one of LauncherArchive::targets().
    static Workshop create(const QString &folder, const QString &baseUrl, const QStringList &keys,
                           const QString &target);

    static bool exists(const QString &folder);
    /// Whether create() found its settings alone missing.
    bool wasMended() const { return m_wasMended; }
    /// The state in a workshop, or in a folder that a site was sent to. Throws a Problem where
    /// `folder` is neither.
    static QString statusPathIn(const QString &folder);
    /// As the launcher wants it: with a "/" at its end. Throws a Problem for what is no site's.
    static QString checkedBaseUrl(QString url);

    /// One command at a time changes generations: throws a Problem while another one does. What a
    /// run left half removed is removed first.
    std::unique_ptr<QLockFile> lock() const;

    const QString &baseUrl() const { return m_baseUrl; }
    /// Throws a Problem where somebody has left none: nothing would be checked for anybody.
    const QStringList &versions() const;
    /// Public keys as minisign writes them: the second line of their files.
    const QStringList &keys() const { return m_keys; }
    /// Those that are there already stay, once.
    void addKeys(const QStringList &keys);
    /// The system of the players' launchers; throws a Problem where somebody has written no such.
    const QString &target() const;
    /// Where the site is sent; empty where that was never told.
    const QString &destination() const { return m_destination; }
    /// Whether it was sent there before, last or earlier.
    bool hasSentTo(const QString &destination) const;
    void setDestination(const QString &destination);
    /// Of no other workshop, wherever that lies. Made when it is first asked for.
    QString id();
    QString path(const QString &name) const { return m_folder + u'/' + name; }
    QString generationPath(const QString &number) const;
    /// What a web server is to serve; where there are no links, until another generation is served.
    QString sitePath() const;
    QString draftPath() const;
    QString statusPath() const;
    QString fingerprintsPath() const;

    /// Both throw a Problem where the link leads to no generation.
    QString draft() const;
    QString served() const;
    /// Of the generation that is to come.
    QString nextNumber() const;
    void setDraft(const QString &number) const;
    /// To be called whenever the state has changed. Where generations have copies of it, the draft
    /// and the served one have that state afterwards, whoever else does this at the same time.
    void spreadStatus() const;

    /// Has the draft served, whose launcher is in service from then on. False when it is served
    /// already.
    bool putOnline();
    /// Removes generations that nobody returns to. Returns why some could not be: the next run
    /// tries again.
    QStringList removeOld() const;

    struct WayBack
    {
        QString number;    ///< what is served now
        QString abandoned; ///< what was prepared and never served; mostly empty
    };
    /// Has the generation served that was before this one, and goes on from there.
    WayBack takeBack() const;

private:
    Workshop(const QString &folder, const QString &baseUrl, const QStringList &versions,
             const QStringList &keys, const QString &target);
    QString linkedGeneration(const QString &linkPath) const;
    bool hasSite() const;
    void mend();
    void makeFirstGeneration();
    void saveSettings() const;
    void putInService(const QString &version);
    QString previous(const QString &number) const;
    /// Those that were served before `number`, the latest first.
    QStringList earlierThan(const QString &number) const;
    QStringList numbers() const;
    /// Generations that a run was killed over when it removed them, too.
    QStringList removeDoomed() const;

    QString m_folder;
    QString m_baseUrl;
    QStringList m_versions;
    QStringList m_keys;
    QString m_target;
    QString m_destination;
    QStringList m_destinations; ///< those before it
    QString m_id;
    bool m_wasMended = false;
};
