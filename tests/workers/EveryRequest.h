#pragma once

#include "tests/support/HttpServer.h"
#include "tests/support/SearchPath.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <memory>

class QTestData;

/// One of the requests that the launcher's workers send, and what the worker then says.
struct WorkerRequest
{
    using Worker = std::unique_ptr<QObject>;

    QString name;
    QByteArray path;      ///< below the server's base URL
    QStringList traits{}; ///< see Introspection::traits()
    QByteArray body;      ///< of a good answer
    QStringList onDisk{}; ///< what that leaves, see EveryRequest::filesOnDisk()

    // What the worker says, see SignalSequence, without the transfer's progress. All of it begins
    // with what it says while it sends the request.
    QStringList atOnce{};
    QStringList success;
    QStringList failure;    ///< "%1" is the network's error text
    QStringList nonsense{}; ///< where the body is no JSON; empty where any body will do
    QStringList failureWith(const QString &errorText) const;

    /// A worker that knows all that it takes to send the request: it may have asked for that.
    std::function<Worker(HttpServer &)> prepare;
    std::function<void(QObject &)> send;

    // Of a download alone.
    QString part{};                  ///< the file while it comes in
    QString file{};                  ///< the file when it is complete
    QString progress{};              ///< "%1" is the percentage
    QString progressOfUnknownSize{}; ///< empty where the worker says nothing
    const char *progressSlot = nullptr;
    bool isDownload() const { return !file.isEmpty(); }
    QStringList progressAt(int percent) const; ///< -1 for an unknown size
    QStringList withoutProgress(const QStringList &reports) const;
};

/// All that the launcher asks a server for, in one shape, for tests of what holds for all of it;
/// with the server that receives it, an empty game folder, an unpacker that finds the client in
/// anything, and an updater program.
class EveryRequest
{
public:
    EveryRequest();
    ~EveryRequest();

    static QStringList names();
    static QStringList downloadNames();
    /// A data row for a request, the name of which is its first value.
    static QTestData &newRow(const QString &request, const char *words = "");
    /// The column "request" and a row for each.
    static void addRows(const QStringList &requests = names());
    WorkerRequest named(const QString &name) const;
    /// The one that the current row names.
    WorkerRequest fetched() const;

    struct Outcome
    {
        QStringList allReports;
        QStringList reports; ///< those without the transfer's progress
        QString errorText;   ///< the network's
        QByteArray content;  ///< of a download's file, when the end of the transfer is reported
        QStringList onDisk;  ///< at the last report, see filesOnDisk()
    };
    /// Prepares a worker, lets `script` say what the server does from then on, sends the request
    /// and waits for its end.
    Outcome run(const WorkerRequest &request, const std::function<void()> &script);

    // All that a test can tell of an end.
    void compareSuccess(const Outcome &outcome, const WorkerRequest &request) const;
    void compareFailure(const Outcome &outcome, const WorkerRequest &request) const;

    /// What lies where downloads are written.
    QStringList filesOnDisk() const;
    /// Of the requests that the server received. Now and then Qt sends one twice when its answer
    /// leads elsewhere: it stands here once.
    QStringList targets() const;

    HttpServer server;

private:
    static QList<WorkerRequest> all(const QString &gameFolder);
    QString gameFolder() const { return m_folder.filePath(QStringLiteral("jeu")); }

    QTemporaryDir m_folder;
    SearchPath m_programs;
};
