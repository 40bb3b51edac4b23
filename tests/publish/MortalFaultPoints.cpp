#include "publish/FaultPoints.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace {

int stepNamedBy(const char *variable)
{
    const char *const step = std::getenv(variable);
    return step ? std::atoi(step) : 0;
}

} // namespace

/// Ends the process, or has it wait for SIGCONT, before the change on the disk whose number the
/// environment tells.
void PublishFaultPoints::next()
{
    static const int dies = stepNamedBy("VEYRA_PUBLISHER_DIES_AT");
    static const int stops = stepNamedBy("VEYRA_PUBLISHER_STOPS_AT");
    static std::atomic_int last = 0;
    const int step = ++last;
    if (step == dies)
        _exit(99);
    if (step == stops)
        std::raise(SIGSTOP);
}
