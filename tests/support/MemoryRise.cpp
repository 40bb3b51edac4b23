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
        return 0; // another system
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
    if (references.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && references.write("5") != 1)
        qFatal("The peak of the memory cannot be reset");
    m_before = peak();
}

qint64 MemoryRise::megabytes() const
{
    return peak() - m_before;
}

QString MemoryRise::reasonToSkip()
{
#if defined(VEYRA_SANITIZED)
    return u"A sanitizer keeps what is freed, and records of its own"_s;
#elif defined(Q_OS_LINUX)
    return {};
#else
    return u"Only Linux tells how far the memory of a process rose"_s;
#endif
}
