// The system knows one signal of those: the keys Ctrl and Break, which reach a process as the end of a
// terminal's "quit" does elsewhere. It calls on a thread of its own.

#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/stacks/AllStacks.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace ZBase::os {

namespace {

constexpr DWORD kLongestPath = 0x8000;
char sDirectory[3 * kLongestPath];
char sTemporary[3 * kLongestPath];

/// "stacks-20261122T014500.123-4711.txt" in a directory.
bool WriteIn(const char* directory) {
    SYSTEMTIME now{};
    GetSystemTime(&now);
    char path[3 * kLongestPath + 64];
    std::snprintf(path, sizeof path, "%s\\stacks-%04d%02d%02dT%02d%02d%02d.%03d-%lu.txt", directory,
                  now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                  GetCurrentProcessId());
    return WriteAllStacks(path);
}

BOOL WINAPI HandleKeys(DWORD keys) {
    if (keys != CTRL_BREAK_EVENT) return FALSE;
    if (!WriteIn(sDirectory)) WriteIn(sTemporary);
    return TRUE;
}

void Keep(char (&place)[3 * kLongestPath], const std::wstring& directory) {
    std::snprintf(place, sizeof place, "%s", ToUtf8(directory).c_str());
    const std::size_t length = std::char_traits<char>::length(place);
    if (length != 0 && place[length - 1] == '\\') place[length - 1] = 0;
}

}  // namespace

bool WriteStacksAtSignal(const unsigned short* signal, const unsigned short* directory) {
    if (std::wcscmp(ToSystem(signal), L"SIGQUIT") != 0) return false;
    std::wstring path(kLongestPath, 0);
    path.resize(GetFullPathNameW(ToSystem(directory), kLongestPath, path.data(), nullptr) % kLongestPath);
    Keep(sDirectory, path);
    path.resize(kLongestPath);
    path.resize(GetTempPathW(kLongestPath, path.data()) % kLongestPath);
    Keep(sTemporary, path);
    StayLoaded();
    static const bool sIsThere = SetConsoleCtrlHandler(HandleKeys, TRUE) != 0;
    return sIsThere;
}

}  // namespace ZBase::os
