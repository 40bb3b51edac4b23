#pragma once

#include "tests/support/HttpServer.h"

#include <QSemaphore>
#include <QThread>

#include <functional>

/// A server on a thread of its own, which goes on while the test's thread is busy.
class BackgroundServer : private QThread
{
public:
    /// Returns when `script` has run, on that thread.
    explicit BackgroundServer(const std::function<void(HttpServer &)> &script);
    ~BackgroundServer() override;
    Q_DISABLE_COPY_MOVE(BackgroundServer)

private:
    void run() override;

    std::function<void(HttpServer &)> m_script;
    QSemaphore m_ready;
};
