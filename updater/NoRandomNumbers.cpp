// In the place of the random numbers of libsodium and libzip, which nothing here asks. Those are
// functions of advapi32.dll which Windows looks for in other libraries (cryptbase.dll is one), for
// some of them while the program is loaded, beside the program first.

#include <sodium.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" {

// Their names are the libraries': the linker then leaves the others out.

randombytes_implementation randombytes_sysrandom_implementation{
    [] { return "none"; },
    []() -> std::uint32_t { std::abort(); },
    [] { std::abort(); },
    nullptr,
    [](void *, std::size_t) { std::abort(); },
    nullptr,
};

bool zip_secure_random(std::uint8_t *, std::uint16_t)
{
    std::abort();
}

std::uint32_t zip_random_uint32()
{
    std::abort();
}
}
