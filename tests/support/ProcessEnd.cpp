#include <cstdio>

#include <windows.h>

// What the linker makes of main(), and what it has called in its place (--wrap=main).
extern "C" int __real_main(int argc, char **argv);
extern "C" int __wrap_main(int argc, char **argv);

/// Wine 8 stops the other threads of a process that ends wherever they are, now and then within a
/// lock of the threads library; the C++ library's clean-up then waits for that for ever. All of our
/// own objects are gone by then, so that such a process ends without that clean-up.
int __wrap_main(int argc, char **argv)
{
    const int code = __real_main(argc, argv);
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")) {
        std::fflush(nullptr);
        TerminateProcess(GetCurrentProcess(), UINT(code));
    }
    return code;
}
