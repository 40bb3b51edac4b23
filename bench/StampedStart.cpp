#include <cstdio>
#include <cstdlib>
#include <string>

#include <time.h>
#include <unistd.h>

/// Runs its arguments as a program that knows when it was started.
int main(int argc, char **argv)
{
    if (argc < 2)
        return EXIT_FAILURE;

    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long nanoseconds = now.tv_sec * 1'000'000'000LL + now.tv_nsec;
    setenv("VEYRA_BENCH_STARTED_NS", std::to_string(nanoseconds).c_str(), 1);
    execv(argv[1], argv + 1);
    std::perror(argv[1]);
    return EXIT_FAILURE;
}
