#pragma once

#include "tests/support/HttpServer.h"
#include "tests/support/SearchPath.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <memory>

/// One of the requests that the launcher's workers send, and what the worker then says.
struct WorkerRequest
{
    using Worker = std::unique_ptr<QObject>;

    QString name;
    QByteArray path; ///< below the server's base URL
    QByteArray body; ///< of a good answer
    QString file;    ///< where that ends up; empty when on no disk
    /// All signals but the progress, see SignalSequence.
    QStringList success;
    /// The same, one signal; "%1" is the network's error text.
    QString failure;
    QStringList failureWith(const QString &errorText) const;

    /// A worker that knows all that it takes to send the request: it may have asked for that.
    std::function<Worker(HttpServer &)> prepare;
    std::function<void(QObject &)> send;
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
    WorkerRequest named(const QString &name) const;

    struct Outcome
    {
        QStringList reports; ///< all signals but the progress
        QString errorText;   ///< the network's
    };
    /// Prepares a worker, lets `script` say what the server does from then on, sends the request
    /// and waits for its end.
    Outcome run(const WorkerRequest &request, const std::function<void()> &script);

    /// What lies where downloads are written.
    QStringList filesOnDisk() const;
    QStringList targets() const; ///< of the requests that the server received

    HttpServer server;

private:
    static QList<WorkerRequest> all(const QString &gameFolder);
    QString gameFolder() const { return m_folder.filePath(QStringLiteral("jeu")); }

    QTemporaryDir m_folder;
    SearchPath m_programs;
};
