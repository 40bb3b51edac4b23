#pragma once

#include <QString>

/// The launcher's one persistent setting, the game folder, and the small JSON file that keeps it.
/// A process-wide singleton, used on the GUI thread only. The application's name and organisation
/// must be set before the first use: they decide where the file lies.
///
/// The launcher links veyra_config. A tool links veyra_config_in_memory: there the folder is empty
/// until the tool sets it, save() does nothing, and neither a file nor a folder is touched.
class Config
{
public:
    static Config &instance();

    /// The game folder, with "/" separators. Read it where it is needed, never keep a copy: the
    /// settings dialog may change it at any time.
    QString dofusPath() const;

    /// Changes the game folder for the rest of the run; save() makes it last.
    void setDofusPath(const QString &path);

    /// Writes the file. A failure is silent: the new folder then holds for this run only.
    void save();

private:
    Config();
    ~Config() = default;
    Q_DISABLE_COPY_MOVE(Config)

    void load();
    QString defaultDofusPath();

    QString m_dofusPath;
    QString m_configPath;
};
