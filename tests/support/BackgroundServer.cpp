#include "tests/support/BackgroundServer.h"

BackgroundServer::BackgroundServer(const std::function<void(HttpServer &)> &script)
    : m_script(script)
{
    start();
    m_ready.acquire();
}

BackgroundServer::~BackgroundServer()
{
    quit();
    wait();
}

void BackgroundServer::run()
{
    HttpServer server;
    m_script(server);
    m_ready.release();
    exec();
}
