#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>

#include <mutex>

/// A file that several threads read and write at once, each at places of its own. Each step throws
/// a Problem (Outcome::Disk) when the system refuses it.
class SharedFile
{
public:
    SharedFile(const QString &path, QIODevice::OpenMode mode);

    bool isOpen() const { return m_file.isOpen(); }
    qint64 size() const { return m_file.size(); }
    /// Less than `size` where the file ends before.
    QByteArray read(qint64 offset, qint64 size);
    void write(qint64 offset, QByteArrayView bytes);
    /// Writes what lies in `source` from `from` on. The bytes do not pass through this program
    /// where the system can have it so; some volumes then share them.
    void copy(SharedFile &source, qint64 from, qint64 size, qint64 offset);

private:
    qint64 copyWithinSystem(SharedFile &source, qint64 from, qint64 size, qint64 offset);
    [[noreturn]] void fail(const QString &what) const;

    QFile m_file;
    std::mutex m_mutex; ///< of the place in the file
};
