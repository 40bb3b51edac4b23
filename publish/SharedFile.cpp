#include "publish/SharedFile.h"

#include "publish/FaultPoints.h"
#include "publish/Outcome.h"

#include <algorithm>

#ifdef Q_OS_LINUX
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

SharedFile::SharedFile(const QString &path, QIODevice::OpenMode mode)
    : m_file(path)
{
    if (mode != QIODevice::ReadOnly)
        PublishFaultPoints::next();
    // Without a buffer nothing is kept back that was written, and handle() knows all of it.
    if (!m_file.open(mode | QIODevice::Unbuffered) && mode != QIODevice::ReadOnly)
        fail(u"Écriture impossible"_s);
}

QByteArray SharedFile::read(qint64 offset, qint64 size)
{
    const std::lock_guard lock(m_mutex);
    if (!m_file.seek(offset))
        fail(u"Lecture impossible"_s);
    return m_file.read(size);
}

void SharedFile::write(qint64 offset, QByteArrayView bytes)
{
    PublishFaultPoints::next();
    const std::lock_guard lock(m_mutex);
    if (!m_file.seek(offset))
        fail(u"Écriture impossible"_s);
    // A disk that gets full takes a part without complaint; the rest meets the reason.
    while (!bytes.isEmpty()) {
        const qint64 written = m_file.write(bytes.data(), bytes.size());
        if (written <= 0)
            fail(u"Écriture impossible"_s);
        bytes = bytes.sliced(written);
    }
}

void SharedFile::copy(SharedFile &source, qint64 from, qint64 size, qint64 offset)
{
    constexpr qint64 kChunk = qint64{1024} * 1024;
    PublishFaultPoints::next();
    qint64 done = copyWithinSystem(source, from, size, offset);
    while (done < size) {
        const QByteArray bytes = source.read(from + done, std::min(kChunk, size - done));
        if (bytes.isEmpty())
            source.fail(u"Lecture impossible"_s);
        write(offset + done, bytes);
        done += bytes.size();
    }
}

#ifdef Q_OS_LINUX

/// How much of it the system has copied: less than all where it refuses, the reason for which
/// whoever goes on will meet.
qint64 SharedFile::copyWithinSystem(SharedFile &source, qint64 from, qint64 size, qint64 offset)
{
    off64_t in = from;
    off64_t out = offset;
    while (in < from + size) {
        const ssize_t copied = ::copy_file_range(source.m_file.handle(), &in, m_file.handle(), &out,
                                                 size_t(from + size - in), 0);
        if (copied <= 0)
            break;
    }
    return in - from;
}

#else

qint64 SharedFile::copyWithinSystem(SharedFile &, qint64, qint64, qint64)
{
    return 0;
}

#endif

void SharedFile::fail(const QString &what) const
{
    throw Problem{Outcome::Disk,
                  u"%1 : %2 (%3)."_s.arg(what, m_file.fileName(), m_file.errorString())};
}
