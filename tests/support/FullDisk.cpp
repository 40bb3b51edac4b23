#include "tests/support/FullDisk.h"

#ifdef Q_OS_UNIX

#include <csignal>
#include <sys/resource.h>

namespace {

void limitFiles(rlim_t bytes)
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes; // the soft limit: it can be raised again
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
        qFatal("Cannot limit the size of files");
}

} // namespace

FullDisk::FullDisk(qint64 bytesLeft)
{
    std::signal(SIGXFSZ, SIG_IGN); // an error instead of the end of the process
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    m_oldLimit = limit.rlim_cur;
    limitFiles(rlim_t(bytesLeft));
}

FullDisk::~FullDisk()
{
    limitFiles(rlim_t(m_oldLimit));
}

bool FullDisk::isPossible()
{
    return true;
}

#else

FullDisk::FullDisk(qint64) {}
FullDisk::~FullDisk() = default;

bool FullDisk::isPossible()
{
    return false;
}

#endif
