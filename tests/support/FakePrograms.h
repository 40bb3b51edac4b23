#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// A search path of the test's own: while this lives, PATH leads to the programs added here and to
/// nothing else. The fakes write down how they were called.
class FakePrograms
{
public:
    FakePrograms();
    ~FakePrograms();
    Q_DISABLE_COPY_MOVE(FakePrograms)

    struct Behaviour
    {
        QByteArray standardError = {};
        QStringList created = {}; ///< files it makes, with their folders
        int exitCode = 0;
        bool crashes = false;
        bool hangs = false;
    };
    void addFake(const QString &name, const Behaviour &behaviour);
    /// Makes a program of the machine's own search path available.
    void addReal(const QString &name);
    /// A file of this name that may be executed but cannot.
    void addBroken(const QString &name);

    bool wasCalled(const QString &name) const;
    QStringList arguments(const QString &name) const;

private:
    QString recordPath(const QString &name, const QString &suffix) const;

    QTemporaryDir m_programs;
    QTemporaryDir m_records;
    QByteArray m_oldPath;
};
