#include "updater/Retry.h"

#include <thread>

namespace {

constexpr std::chrono::milliseconds kRetryInterval{100};

} // namespace

Platform::Error retried(std::chrono::milliseconds retryFor,
                        const std::function<Platform::Error()> &call)
{
    const auto deadline = std::chrono::steady_clock::now() + retryFor;
    for (;;) {
        Platform::Error error = call();
        if (error.kind != Platform::Error::Kind::Busy ||
            std::chrono::steady_clock::now() >= deadline)
            return error;
        std::this_thread::sleep_for(kRetryInterval);
    }
}

std::string explained(const Platform::Error &error, const std::string &path)
{
    std::string text = error.text;
    if (error.kind == Platform::Error::Kind::Busy) {
        for (const std::string &holder : Platform::holders(path))
            text += ", ouvert par " + holder;
    }
    return text;
}
