#pragma once

#include "publish/Outcome.h"

#include <QList>
#include <QStringList>

struct CommandLine;

/// A command and what may follow it.
struct CommandForm
{
    QString name; ///< of one word or two
    qsizetype operands;
    qsizetype optionalOperands;
    QStringList valueOptions;
    QStringList flags;
    Outcome (*run)(const CommandLine &);
};

const QList<CommandForm> &commandForms();
QString helpText();

/// The whole program, but for what main() sets up.
Outcome runPublisher(const QStringList &arguments);
