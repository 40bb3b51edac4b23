#include "publish/News.h"

#include "publish/JsonFile.h"
#include "publish/Outcome.h"

#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;

namespace {

/// The launcher fills "%1" and the like in an item one after the other, in what it has just filled
/// in as well. Written as HTML the sign is out of its reach and looks the same.
QString withoutPlaceholders(QString text)
{
    static const QRegularExpression kPlaceholder(u"%(?=L?[0-9])"_s);
    return text.replace(kPlaceholder, u"&#37;"_s);
}

} // namespace

News News::load(const QString &path)
{
    News news;
    const QJsonDocument document = JsonFile::read(path);
    if (!document.isArray()) {
        throw Problem{Outcome::Refused,
                      u"%1 n'est pas un tableau d'actualités ; rien n'a été changé."_s.arg(path)};
    }
    news.m_items = document.array();
    return news;
}

void News::add(const QString &title, const QString &text, const QString &date)
{
    QJsonObject item{{"title"_L1, withoutPlaceholders(title)}, {"content"_L1, text}};
    if (!date.isEmpty())
        item.insert("date"_L1, withoutPlaceholders(date));
    m_items.prepend(item);
}

bool News::remove(qsizetype index)
{
    if (index < 0 || index >= m_items.size())
        return false;
    m_items.removeAt(index);
    return true;
}

QStringList News::lines() const
{
    QStringList lines;
    for (const QJsonValue item : m_items) {
        const QString date = item["date"_L1].toString();
        const QString title = item["title"_L1].toString();
        const QString text = item.isString() ? item.toString() : item["content"_L1].toString();
        QString line = date.isEmpty() ? QString() : u"[%1] "_s.arg(date);
        line += title.isEmpty() ? text : title + u" — "_s + text;
        lines.append(line.replace("&#37;"_L1, "%"_L1).simplified());
    }
    return lines;
}
