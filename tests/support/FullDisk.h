#pragma once

#include <QtGlobal>

/// While this lives, no file of this process can grow beyond a number of bytes: writing more fails
/// as on a full disk.
class FullDisk
{
public:
    explicit FullDisk(qint64 bytesLeft);
    ~FullDisk();
    Q_DISABLE_COPY_MOVE(FullDisk)

    /// False on systems that know no such limit.
    static bool isPossible();

private:
    quint64 m_oldLimit = 0;
};
