#pragma once

#include <QObject>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

/// Asks the server every 30 seconds whether the game is up and how many play. Keeps no state
/// between answers. Owned by the main window; GUI thread.
class ServerChecker : public QObject
{
    Q_OBJECT

public:
    /// Starts the poll timer; the first request is the caller's checkStatus().
    explicit ServerChecker(QObject *parent);

    /// Sends one request. Requests are independent: several may be in flight.
    void checkStatus();

signals:
    /// One report for each request. Every failure, from an unreachable server to a body that is no
    /// JSON object, reads as offline with 0 players.
    void statusReceived(bool online, int players);

private slots:
    void onCheckFinished(QNetworkReply *reply);

private:
    QNetworkAccessManager *m_networkManager = nullptr;
    QTimer *m_pollTimer = nullptr;
};
