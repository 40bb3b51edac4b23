#pragma once

/// Ctrl+C, the request to end, and the end of the terminal: they stop the work between two steps,
/// so that what is half made can be removed.
namespace Interruption {

/// From here on they no longer end the process by themselves.
void watch();

bool wasRequested();

/// Whether check() throws now. Any thread.
bool isDue();

/// Throws a Problem once it was requested. Any thread.
void check();

/// While one lives, check() throws nothing: for what takes a moment and must not stop in between.
class PutOff
{
public:
    PutOff();
    ~PutOff();
    PutOff(const PutOff &) = delete;
    PutOff &operator=(const PutOff &) = delete;
};

} // namespace Interruption
