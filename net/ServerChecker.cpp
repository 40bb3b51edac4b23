#include "net/ServerChecker.h"

#include "config/BuildSettings.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kStatusPollInterval = 30s;
constexpr auto kStatusPath = "api/status.php"_L1;

} // namespace

ServerChecker::ServerChecker(QObject *parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this))
    , m_pollTimer(new QTimer(this))
{
    connect(m_pollTimer, &QTimer::timeout, this, &ServerChecker::checkStatus);
    m_pollTimer->start(kStatusPollInterval);
}

void ServerChecker::checkStatus()
{
    QNetworkRequest request(QUrl(BuildSettings::serverBaseUrl() + kStatusPath));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         int{QNetworkRequest::NoLessSafeRedirectPolicy});

    QNetworkReply *reply = m_networkManager->get(request);
    connect(reply, &QNetworkReply::finished, reply, [this, reply] { onCheckFinished(reply); });
}

void ServerChecker::onCheckFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        emit statusReceived(false, 0);
        return;
    }

    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll());
    if (!document.isObject()) {
        emit statusReceived(false, 0);
        return;
    }

    const QJsonObject status = document.object();
    emit statusReceived(status.value("online"_L1).toBool(false),
                        status.value("players"_L1).toInt(0));
}
