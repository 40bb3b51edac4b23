#include "publish/Status.h"

#include "publish/Disk.h"

#include <QFile>
#include <QJsonObject>
#include <QTcpSocket>

#include <chrono>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kConnectFor = 5s;

} // namespace

ServerStatus ServerStatus::load(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject status = QJsonDocument::fromJson(file.readAll()).object();
    return {status.value("online"_L1).toBool(), status.value("players"_L1).toInt()};
}

void ServerStatus::save(const QString &path) const
{
    Disk::write(path, QJsonDocument(QJsonObject{{"online"_L1, online}, {"players"_L1, players}}));
}

bool acceptsConnections(const QString &host, quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(host, port);
    return socket.waitForConnected(static_cast<int>(kConnectFor.count()));
}
