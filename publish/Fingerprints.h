#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

/// What tells without reading a file that it is still the same.
struct FileStamp
{
    qint64 size = 0;
    qint64 modified = 0; ///< milliseconds since 1970
    qint64 changed = 0;  ///< of its entry in the file system; milliseconds since 1970

    static FileStamp of(const QString &path);
    bool operator==(const FileStamp &) const = default;
};

/// The sums of files that were read in earlier runs ("empreintes.json"). Only files count that were
/// left alone for two seconds before: within the clock's coarseness of some volumes a change would
/// not show.
class Fingerprints
{
public:
    explicit Fingerprints(const QString &path);

    /// SHA-256 in lower-case hexadecimal; empty when it is not known.
    QByteArray find(const QString &file, const FileStamp &stamp) const;
    /// `readAt` is when reading the file began, in milliseconds since 1970.
    void remember(const QString &file, const FileStamp &stamp, const QByteArray &sum,
                  qint64 readAt);
    /// Keeps what was remembered in this run.
    void save() const;

private:
    struct Known
    {
        FileStamp stamp;
        QByteArray sum;
    };

    QString m_path;
    QHash<QString, Known> m_known;
    QHash<QString, Known> m_current;
};
