#pragma once

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <memory>

class QFile;
class QNetworkAccessManager;

/// An answer as it came over the network, with what the launcher's workers do not look at.
struct SiteAnswer
{
    int status = 0;  ///< 0: there was no answer at all
    QString problem; ///< why there was none, or why it broke off
    int redirects = 0;
    bool isLost = false; ///< in redirects that go round, too far, or where Qt does not follow
    QByteArray body;     ///< unpacked, if it came packed
    qint64 length = -1;  ///< as announced: of the whole file, whatever part was asked for
    QByteArray encoding;
    QByteArray cacheControl;

    bool isGood() const { return status == 200 && !isLost && problem.isEmpty(); }
};

/// Asks a site for what lies there, one request after the other.
class SiteReader
{
public:
    SiteReader();
    ~SiteReader();
    Q_DISABLE_COPY_MOVE(SiteReader)

    SiteAnswer get(const QUrl &url) const;
    /// Writes the body into a file that there is not yet. Throws a Problem where it cannot.
    SiteAnswer save(const QUrl &url, const QString &path) const;
    /// The answer's head; the body is not waited for.
    SiteAnswer head(const QUrl &url) const;
    /// A part of the file, by a range; the status is 206 where the server knows them.
    SiteAnswer part(const QUrl &url, qint64 offset, qint64 size) const;

private:
    enum class Body { Kept, Saved, NotAwaited };

    SiteAnswer ask(QNetworkRequest request, Body body, QFile *file = nullptr) const;

    std::unique_ptr<QNetworkAccessManager> m_manager;
};
