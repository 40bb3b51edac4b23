#include "publish/Interruption.h"

#include "publish/Outcome.h"

#include <atomic>
#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

std::atomic_bool requested = false;
std::atomic_int putOffs = 0;
static_assert(std::atomic_bool::is_always_lock_free); // a signal handler may set it

void request(int)
{
    requested = true;
}

} // namespace

void Interruption::watch()
{
    std::signal(SIGINT, request);
    std::signal(SIGTERM, request);
#ifdef SIGHUP
    if (std::signal(SIGHUP, request) == SIG_IGN)
        std::signal(SIGHUP, SIG_IGN); // nohup wants the work to go on
#endif
}

bool Interruption::wasRequested()
{
    return requested;
}

bool Interruption::isDue()
{
    return requested && putOffs == 0;
}

void Interruption::check()
{
    if (isDue())
        throw Problem{Outcome::Interrupted, u"Interrompu : rien n'a été changé."_s};
}

Interruption::PutOff::PutOff()
{
    ++putOffs;
}

Interruption::PutOff::~PutOff()
{
    --putOffs;
}
