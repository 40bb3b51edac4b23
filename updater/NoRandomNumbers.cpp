// In the place of libsodium's own source of random numbers, which nothing here asks. That one is a
// function of advapi32.dll which Windows looks for in cryptbase.dll while the program is loaded,
// beside the program first.

#include <sodium.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" {

// Its name is libsodium's: the linker then leaves the other one out.
randombytes_implementation randombytes_sysrandom_implementation{
    [] { return "none"; },
    []() -> std::uint32_t { std::abort(); },
    [] { std::abort(); },
    nullptr,
    [](void *, std::size_t) { std::abort(); },
    nullptr,
};
}
