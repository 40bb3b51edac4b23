#pragma once

#include "tests/updater/KeyPair.h"
#include "tests/updater/SampleUpdate.h"

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

/// An installed launcher of version 1.0.0 in a folder of its own, an archive with 1.0.1, and the
/// updater program, all of them real programs. Both launchers record their starts.
class Installation
{
public:
    static constexpr int kKilled = 77;
    static constexpr auto kLauncher = "VeyraLauncher.exe";
    static constexpr auto kUpdater = "LauncherUpdater.exe";

    struct Outcome
    {
        int exitCode = -1; ///< -1 where the program crashed or did not end
        QString errors;    ///< the standard error
        QString log;
    };

    /// `name` is that of the launcher's folder.
    explicit Installation(const QString &name = QStringLiteral("Véyra Launcher"));

    QString folder() const { return m_folder; }
    QString archive() const
    {
        return m_folders.filePath(QStringLiteral("VeyraLauncher_update.zip"));
    }
    const KeyPair &keys() const { return m_keys; }
    /// What 1.0.1 consists of; writeArchive() makes it from other files.
    SampleUpdate update() const;
    void writeArchive(const QByteArray &bytes) const;

    /// Files of 1.0.0 alone, of 1.0.1 alone and of nobody, as the folder shall be; folders end in
    /// "/". Only files of this program's own are left out.
    QMap<QString, QByteArray> oldState() const { return m_oldState; }
    QMap<QString, QByteArray> newState() const { return m_newState; }
    QMap<QString, QByteArray> state() const;
    /// Whether anything of the updater's own is left in the folder.
    bool hasRemains() const;
    /// Makes the folder as it was, or as it was when keep() was called.
    void restore();
    void keep();
    void forget() { m_kept = m_oldState; }

    /// Other users may then look into the folder, and run what lies there.
    void letStrangersIn();

    /// Runs a program of the folder until it ends. `faults` is for ProbeFaultPoints.cpp. On Windows
    /// the updater program would end at once and leave the work to a copy of it that lies
    /// elsewhere: there it is such a copy that runs.
    Outcome run(const QString &program, const QStringList &arguments, const QString &faults = {});
    /// As the launcher does.
    Outcome runUpdater(const QString &faults = {});
    /// Runs it where it lies, and does not wait.
    bool startDetached(const QString &program, const QStringList &arguments);
    /// As a person does, who clicks on the launcher or on the updater program.
    Outcome start(const QString &program, const QString &faults = {});
    /// Of the last run without faults.
    int callCount() const;

    /// The starts of launchers since the last call: "old" or "new" for each, once `count` are
    /// there.
    QStringList startsOf(int count);
    QStringList lastRecord() const { return m_lastRecord; }

    QProcessEnvironment environment;
    std::function<void(QProcess &)> prepareProcess = {};

private:
    QString copyOf(const QString &program) const;
    QString callsPath() const { return m_folders.filePath(QStringLiteral("calls.txt")); }
    QString recordPath() const { return m_folders.filePath(QStringLiteral("starts.txt")); }

    KeyPair m_keys;
    QTemporaryDir m_folders;
    QString m_folder;
    QMap<QByteArray, QByteArray> m_newFiles;
    QMap<QString, QByteArray> m_oldState;
    QMap<QString, QByteArray> m_newState;
    QMap<QString, QByteArray> m_kept;
    QStringList m_lastRecord;
};
