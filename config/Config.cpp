#include "config/Config.h"

Config &Config::instance()
{
    static Config config;
    return config;
}

QString Config::dofusPath() const
{
    return m_dofusPath;
}

void Config::setDofusPath(const QString &path)
{
    m_dofusPath = path;
}
