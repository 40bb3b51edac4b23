#pragma once

#include <QString>

#include <optional>

/// Tells without reading them which of a generation's client files are as "client" has left them.
/// The manifest is the last that it writes, and nobody changes a file without giving it a later
/// time, or another size. Their entries in the file system tell nothing: each further generation
/// changes those by its links.
class PreparedClient
{
public:
    /// `folder` is the generation's.
    explicit PreparedClient(const QString &folder);

    /// `size` where it is known which one it had.
    bool isUntouched(const QString &name, std::optional<qint64> size = {}) const;

private:
    QString m_folder;
    qint64 m_finished; ///< milliseconds since 1970; 0 where there is no client
};
