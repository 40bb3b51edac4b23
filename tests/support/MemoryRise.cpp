#include "tests/support/MemoryRise.h"

#include <QByteArray>
#include <QFile>

using namespace Qt::Literals::StringLiterals;

namespace {

/// The most memory that this process has had so far, in MB.
qint64 peak()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:")) // "VmHWM:      4711 kB"
            return line.simplified().split(' ').value(1).toLongLong() / 1024;
    }
    return 0;
}

} // namespace

MemoryRise::MemoryRise()
{
    // The peak begins anew with what there is now.
    QFile references(u"/proc/self/clear_refs"_s);
    if (references.open(QIODevice::WriteOnly))
        references.write("5");
    references.close();
    m_before = peak();
}

qint64 MemoryRise::megabytes() const
{
    return peak() - m_before;
}

QString MemoryRise::reasonToSkip()
{
#if defined(__SANITIZE_ADDRESS__)
    return u"AddressSanitizer keeps what is freed"_s;
#elif defined(__SANITIZE_THREAD__)
    return u"ThreadSanitizer keeps records of its own"_s;
#elif defined(Q_OS_LINUX)
    return {};
#else
    return u"Only Linux tells how far the memory of a process rose"_s;
#endif
}
