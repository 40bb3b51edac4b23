#pragma once

#include "publish/Patience.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QNetworkAccessManager;

/// An answer as it came over the network, with what the launcher's workers do not look at.
struct SiteAnswer
{
    int status = 0;  ///< 0: there was no answer at all
    QString problem; ///< why there was none, or why it broke off
    int redirects = 0;
    bool isLost = false;     ///< in redirects that go round, or where Qt does not follow
    bool isSilent = false;   ///< nothing came any more, and a launcher would wait for ever
    bool isOverlong = false; ///< more came than anybody could want; the rest was not read
    QByteArray body;         ///< unpacked, if it came packed; of a head, the first bytes
    qint64 length = -1;      ///< as announced: of the whole file, whatever part was asked for
    QByteArray encoding;
    QByteArray cacheControl;

    bool isGood() const { return status == 200 && !isLost && problem.isEmpty(); }
};

/// Asks a site for what lies there, one request after the other.
class SiteReader
{
public:
    explicit SiteReader(const Patience &patience = {});
    ~SiteReader();
    Q_DISABLE_COPY_MOVE(SiteReader)

    /// A body of more than `limit` bytes is not read to its end.
    SiteAnswer get(const QUrl &url, qint64 limit) const;
    /// Writes the body into a file that there is not yet. Throws a Problem where it cannot.
    /// `size` is what was announced, for the progress; -1 where nothing was.
    SiteAnswer save(const QUrl &url, const QString &path, qint64 size, qint64 limit) const;
    /// The answer's head; of the body the first bytes alone are waited for.
    SiteAnswer head(const QUrl &url) const;
    /// A part of the file, by a range; the status is 206 where the server knows them.
    SiteAnswer part(const QUrl &url, qint64 offset, qint64 size) const;

private:
    /// Gets the body piece by piece, and tells whether it wants more.
    using Taker = std::function<bool(const QByteArray &piece)>;

    SiteAnswer ask(QNetworkRequest request, Patience::Time limit, const Taker &take) const;
    SiteAnswer askForHead(const QNetworkRequest &request) const;
    SiteAnswer askForBody(const QNetworkRequest &request, qint64 limit) const;

    Patience m_patience;
    std::unique_ptr<QNetworkAccessManager> m_manager;
};
