#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>

/// veyra-publier as a process, in a workshop of its own.
class Publisher
{
public:
    struct Result
    {
        int code = -1;
        QString output;
        QString errors;
    };

    /// An empty folder: `run({"init", ...})` makes a workshop of it.
    Publisher();

    static QString program();

    QString path(const QString &name) const
    {
        return m_folder.filePath(QStringLiteral("atelier/") + name);
    }
    /// A folder beside the workshop, for clients.
    QString beside(const QString &name) const { return m_folder.filePath(name); }

    /// Event loops go on meanwhile: a server of the test can answer.
    Result run(const QStringList &arguments) const;
    /// What the web server would serve.
    QString sitePath() const;
    /// All of it, by name.
    QMap<QString, QByteArray> site() const;

    // --- On Unix alone: other rights, and ends at any step

    /// From here on the tool has no more rights than anybody: root's would hide what it does where
    /// it has none. Called before there is anything. False where others cannot come this far.
    bool runAsStranger();
    /// The tool that ends by itself, as if killed, before its `step`th change on the disk.
    Result runUntil(int step, const QStringList &arguments) const;
    static constexpr int kKilled = 99;
    /// Starts the tool, which waits for SIGCONT before its `step`th change on the disk.
    void startUntil(QProcess &process, int step, const QStringList &arguments) const;
    static bool isStopped(const QProcess &process);
    /// Starts the tool, which gives servers up that say nothing for so long.
    void startImpatient(QProcess &process, std::chrono::milliseconds patience,
                        const QStringList &arguments) const;

private:
    void startMortal(QProcess &process, const QString &variable, qint64 value,
                     const QStringList &arguments) const;
    Result runProgram(const QString &program, const QStringList &arguments) const;

    QTemporaryDir m_folder;
    bool m_isStranger = false;
};

namespace Clients {

/// The smallest client there is, with a name that has an accent, and one file that packs well.
QMap<QString, QByteArray> sample();
void write(const QString &folder, const QMap<QString, QByteArray> &files);

} // namespace Clients
