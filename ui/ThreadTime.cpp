#include "ui/ThreadTime.h"

#include <QtGlobal>

#ifdef Q_OS_WIN
#include <qt_windows.h>

std::chrono::nanoseconds threadTime()
{
    FILETIME created;
    FILETIME ended;
    FILETIME kernel;
    FILETIME user;
    if (!GetThreadTimes(GetCurrentThread(), &created, &ended, &kernel, &user))
        return {};
    const auto ticks = [](const FILETIME &time) {
        return qint64{time.dwHighDateTime} << 32 | qint64{time.dwLowDateTime};
    };
    constexpr std::chrono::nanoseconds kTick{100};
    return (ticks(kernel) + ticks(user)) * kTick;
}
#else
#include <ctime>

std::chrono::nanoseconds threadTime()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}
#endif
