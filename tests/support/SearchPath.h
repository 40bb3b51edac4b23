#pragma once

#include "tests/support/StandIn.h"

#include <QTemporaryDir>

#include <map>

/// A search path of the test's own: while this lives, PATH leads to the programs added here and to
/// nothing else.
class SearchPath
{
public:
    SearchPath();
    ~SearchPath();
    Q_DISABLE_COPY_MOVE(SearchPath)

    /// Puts it in the place of what has this name so far.
    void addStandIn(const QString &name, const StandIn::Behaviour &behaviour);
    /// Makes a program of the machine's own search path available.
    void addReal(const QString &name);
    /// A file of this name that may be executed but cannot.
    void addBroken(const QString &name);

    /// The starts so far of the stand-in of this name, the earliest first.
    QList<StandIn::Start> startsOf(const QString &name) const;

private:
    QString pathOf(const QString &name) const;

    QByteArray m_oldPath;
    QTemporaryDir m_folder;
    std::map<QString, StandIn> m_standIns;
};
