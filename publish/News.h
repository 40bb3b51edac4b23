#pragma once

#include <QJsonArray>
#include <QString>
#include <QStringList>

/// The news of a generation, the newest first.
class News
{
public:
    /// Throws a Problem for what is no list: it would be lost.
    static News load(const QString &path);

    /// Title and text are HTML; an empty date leaves it out.
    void add(const QString &title, const QString &text, const QString &date);
    bool remove(qsizetype index);
    /// One line for each item, for a terminal.
    QStringList lines() const;
    const QJsonArray &items() const { return m_items; }

private:
    QJsonArray m_items;
};
