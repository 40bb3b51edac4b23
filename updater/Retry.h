#pragma once

#include "updater/Platform.h"

#include <chrono>
#include <functional>

/// Makes a call again and again while another program (a virus scanner, say) holds what it is
/// about, at most for `retryFor`. Returns the last answer.
Platform::Error retried(std::chrono::milliseconds retryFor,
                        const std::function<Platform::Error()> &call);

/// What the system says of a file, and which programs have it open where that is the reason.
std::string explained(const Platform::Error &error, const std::string &path);
