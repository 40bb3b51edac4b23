#pragma once

#include <chrono>

/// The processor time that the calling thread has used. Other than the clock's it does not grow
/// with what else the machine has to do.
std::chrono::nanoseconds threadTime();
