#include "config/Config.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kDofusPathKey = "dofus_path"_L1;

} // namespace

Config::Config()
{
    const QString location = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    QDir().mkpath(location);
    m_configPath = location + "/config.json"_L1;
    load();
}

void Config::save()
{
    QJsonObject settings;
    settings[kDofusPathKey] = m_dofusPath;

    QFile file(m_configPath);
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QJsonDocument(settings).toJson(QJsonDocument::Indented));
    file.close();
}

void Config::load()
{
    QFile file(m_configPath);
    if (file.open(QIODevice::ReadOnly)) {
        const QJsonObject settings = QJsonDocument::fromJson(file.readAll()).object();
        m_dofusPath = settings.value(kDofusPathKey).toString();
        file.close();
    }

    // Not written back: the file comes into being when the user saves a choice.
    if (m_dofusPath.isEmpty())
        m_dofusPath = defaultDofusPath();
}

QString Config::defaultDofusPath()
{
    QString path = QCoreApplication::applicationDirPath() + "/Client"_L1;
    QDir().mkpath(path);
    return path;
}
