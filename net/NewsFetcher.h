#pragma once

#include <QObject>
#include <QStringList>

class QNetworkAccessManager;
class QNetworkReply;

/// Fetches the server's news once and formats it. Owned by the main window; GUI thread.
class NewsFetcher : public QObject
{
    Q_OBJECT

public:
    explicit NewsFetcher(QObject *parent);

    /// Sends the request; newsReceived() answers it exactly once.
    void fetchNews();

signals:
    /// Rich-text snippets in the order to show them. Never empty: a failure or an empty feed comes
    /// as one snippet that says so.
    void newsReceived(const QStringList &news);

private slots:
    void onFetchFinished(QNetworkReply *reply);

private:
    QNetworkAccessManager *m_networkManager = nullptr;
};
