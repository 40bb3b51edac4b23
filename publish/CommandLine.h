#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

struct CommandForm;

/// What the operator has typed, taken apart.
struct CommandLine
{
    QString workshop = QStringLiteral(".");
    const CommandForm *form = nullptr;
    QStringList operands;
    QHash<QString, QStringList> options; ///< those without a value have an empty one

    /// Throws a Problem (Outcome::Usage) for what is no command.
    static CommandLine parse(const QStringList &arguments);

    bool has(const QString &option) const { return options.contains(option); }
    QStringList values(const QString &option) const { return options.value(option); }

private:
    void check() const;
};
