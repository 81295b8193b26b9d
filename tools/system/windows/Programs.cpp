#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <windows.h>

#include <Base/platform/os/windows/WideText.h>

namespace {

// As the C library of the program splits it again.
void AppendQuoted(std::wstring& line, const std::wstring& argument) {
    if (!line.empty()) line += L' ';
    line += L'"';
    std::size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"') line.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        line += unit;
    }
    line.append(backslashes, L'\\');
    line += L'"';
}

Failure SystemFailure(const std::string& program, DWORD code) {
    return Failure(program + ": " + Shown(Narrow(ZBase::GetWin32APIErrorDescriptionOrNULL(code, 0).c_str())));
}

}  // namespace

std::string OutputOf(const std::vector<std::string>& command) {
    std::wstring line;
    for (const std::string& argument : command) AppendQuoted(line, ZBase::os::FromUtf8(argument));
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    HANDLE from = nullptr;
    HANDLE to = nullptr;
    if (!CreatePipe(&from, &to, &inheritable, 0)) throw SystemFailure(command[0], GetLastError());
    SetHandleInformation(from, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = to;
    PROCESS_INFORMATION process{};
    const bool isStarted = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                                          nullptr, nullptr, &start, &process) != 0;
    const DWORD failed = GetLastError();
    CloseHandle(to);
    std::string output;
    char piece[65536];
    DWORD count = 0;
    while (isStarted && ReadFile(from, piece, sizeof piece, &count, nullptr) && count != 0)
        output.append(piece, count);
    CloseHandle(from);
    if (!isStarted) throw SystemFailure(command[0], failed);
    DWORD status = 0;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (status != 0 && output.empty()) throw Failure(command[0] + " failed");
    return output;
}
