#include "publish/FaultPoints.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace {

int numberNamedBy(const char *variable)
{
    const char *const number = std::getenv(variable);
    return number ? static_cast<int>(std::strtol(number, nullptr, 10)) : 0;
}

} // namespace

/// Ends the process, or has it wait for SIGCONT, before the change on the disk whose number the
/// environment tells.
void PublishFaultPoints::next()
{
    static const int dies = numberNamedBy("VEYRA_PUBLISHER_DIES_AT");
    static const int stops = numberNamedBy("VEYRA_PUBLISHER_STOPS_AT");
    static std::atomic_int last = 0;
    const int step = ++last;
    if (step == dies)
        _exit(99);
    if (step == stops)
        std::raise(SIGSTOP);
}

std::chrono::milliseconds PublishFaultPoints::patience(std::chrono::milliseconds usual)
{
    static const std::chrono::milliseconds named(numberNamedBy("VEYRA_PUBLISHER_WAITS"));
    return named.count() > 0 ? named : usual;
}
