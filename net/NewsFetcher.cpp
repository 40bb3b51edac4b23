#include "net/NewsFetcher.h"

#include "config/BuildSettings.h"
#include "config/Colors.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kNewsPath = "api/news.php"_L1;

// The welcome text's green differs from the titles' teal on purpose.
const auto kWelcomeNews =
    u"<span style='color: "_s + Colors::kAccent +
    u";'>Bienvenue sur Veyra !</span><br/>Le serveur est en cours de préparation. "
    u"Restez connectés pour les dernières actualités."_s;
const auto kNoNews = u"Aucune actualité pour le moment."_s;
const auto kDatedItem =
    u"<b>[%1]</b> <span style='color: "_s + Colors::kNewsTitle + u";'>%2</span><br/>%3"_s;
const auto kUndatedItem = u"<span style='color: "_s + Colors::kNewsTitle + u";'>%1</span><br/>%2"_s;

/// Characters; far more than anybody reads.
constexpr qsizetype kAmplifiedLimit = 10'000'000;

// Several times of what the panel shows of the longest feed. A body of a few megabytes can hold
// more than a million empty items, and formatting them would hold the event loop for seconds.
constexpr qsizetype kFeedLimit = 4'000'000;
constexpr qsizetype kShareOfItem = 40; // characters that the panel puts around each

/// Values of all kinds, far more than that many characters of news have.
constexpr qsizetype kValueLimit = 250'000;

/// The items of a body up to the one that brings too many values. A few megabytes can hold
/// millions, and parsing them would hold the event loop for too long.
QByteArray withFewValues(const QByteArray &body)
{
    qsizetype values = 0;
    qsizetype endOfItem = 0;
    int depth = 0;
    bool isInText = false;
    for (qsizetype i = 0; i < body.size(); ++i) {
        const char c = body[i];
        if (c == '"') {
            isInText = !isInText;
        } else if (isInText) {
            i += c == '\\' ? 1 : 0; // what follows it ends no text
        } else if (c == '[' || c == '{') {
            ++depth;
            ++values;
        } else if (c == ']' || c == '}') {
            --depth;
        } else if (c == ',') {
            ++values;
            endOfItem = depth == 1 ? i : endOfItem;
        }
        if (values > kValueLimit)
            return body.first(endOfItem) + ']';
    }
    return body;
}

/// A feed of a few kilobytes with a thousand "%2" in a date and as many "%3" in the title would ask
/// for gigabytes.
QString bounded(const QString &argument, const QString &text)
{
    const qsizetype places = text.count(u'%');
    return places > 1 ? argument.left(kAmplifiedLimit / places) : argument;
}

/// Placeholders are filled one after the other, so a "%2" inside a date receives the title.
QString formatItem(const QJsonObject &item)
{
    const QString title = item.value("title"_L1).toString();
    const QString date = item.value("date"_L1).toString();
    const QString content = item.value("content"_L1).toString();

    QString text = kUndatedItem;
    if (!date.isEmpty())
        text = kDatedItem.arg(bounded(date, kDatedItem));
    text = text.arg(bounded(title, text));
    return text.arg(bounded(content, text));
}

} // namespace

NewsFetcher::NewsFetcher(QObject *parent)
    : QObject(parent)
    , m_networkManager(new QNetworkAccessManager(this))
{
}

void NewsFetcher::fetchNews()
{
    QNetworkRequest request(QUrl(BuildSettings::serverBaseUrl() + kNewsPath));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         int{QNetworkRequest::NoLessSafeRedirectPolicy});

    QNetworkReply *reply = m_networkManager->get(request);
    connect(reply, &QNetworkReply::finished, reply, [this, reply] { onFetchFinished(reply); });
}

void NewsFetcher::onFetchFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    QStringList news;
    if (reply->error() != QNetworkReply::NoError) {
        news.append(kWelcomeNews);
        emit newsReceived(news);
        return;
    }

    const QJsonArray items = QJsonDocument::fromJson(withFewValues(reply->readAll())).array();
    qsizetype characters = 0;
    for (const QJsonValue item : items) {
        if (item.isString())
            news.append(item.toString());
        else if (item.isObject())
            news.append(formatItem(item.toObject()));
        else
            continue;
        characters += news.last().size() + kShareOfItem;
        if (characters > kFeedLimit)
            break;
    }

    if (news.isEmpty())
        news.append(kNoNews);
    emit newsReceived(news);
}
