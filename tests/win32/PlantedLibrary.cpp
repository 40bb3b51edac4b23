// Stands for a DLL that somebody put beside a program: it leaves a file with ".loaded" behind its
// own name.

#include <array>
#include <string>

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID)
{
    if (reason != DLL_PROCESS_ATTACH)
        return TRUE;
    std::array<wchar_t, MAX_PATH> path{};
    GetModuleFileNameW(self, path.data(), DWORD(path.size()));
    HANDLE const mark = CreateFileW((std::wstring(path.data()) + L".loaded").c_str(), GENERIC_WRITE,
                                    0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (mark != INVALID_HANDLE_VALUE)
        CloseHandle(mark);
    return TRUE;
}
