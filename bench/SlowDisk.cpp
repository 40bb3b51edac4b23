#include <chrono>
#include <cstdlib>
#include <thread>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

/// A disk that writes VEYRA_BENCH_DISK_RATE bytes per second: the page cache would hide a real one
/// until it is full. Sockets and pipes are as fast as ever.
extern "C" ssize_t write(int descriptor, const void *data, size_t size)
{
    using Write = ssize_t (*)(int, const void *, size_t);
    static const auto realWrite = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
    static const char *rate = std::getenv("VEYRA_BENCH_DISK_RATE");

    struct stat status = {};
    if (rate && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        std::this_thread::sleep_for(
            std::chrono::duration<double>(static_cast<double>(size) / std::strtod(rate, nullptr)));
    return realWrite(descriptor, data, size);
}
