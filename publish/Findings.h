#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>

/// A mistake that a site can have.
struct Mistake
{
    QString code;
    bool isError;    ///< or a warning: players can play all the same
    QString players; ///< what they see of it
    QString remedy;
};

struct Finding
{
    const Mistake *mistake;
    QString place;   ///< the address, relative to the site's
    QString detail;  ///< what exactly is wrong there
    QString players; ///< what they see of it there
};

class Findings
{
public:
    /// All mistakes that there are.
    static const QList<Mistake> &catalogue();

    /// `code` is one of the catalogue. What players see is the catalogue's if it is not told here.
    void add(const QString &code, const QString &place, const QString &detail,
             const QString &players = {});
    /// One finding for all of `examples`; none where there is no example.
    void addExamples(const QString &code, const QString &place, const QString &what,
                     const QStringList &examples, const QString &players = {});

    bool hasErrors() const;
    bool has(const QString &code, const QString &place) const;
    bool hasErrorAt(const QString &place) const;
    bool isEmpty() const { return m_findings.isEmpty(); }
    QString text() const;
    QJsonArray json() const;

private:
    QList<Finding> m_findings;
};
