#include "tests/support/windows/StartChild.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

namespace test {

namespace {

constexpr int kMostTries = 5;
constexpr DWORD kPauseMilliseconds = 100;

std::wstring Wide(const std::string& text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    wide.resize(
        static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), length)));
    return wide;
}

// Backslashes are doubled in front of a quote.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring line = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"') line.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        line += c;
    }
    line.append(backslashes, L'\\');
    return line + L'"';
}

// This process's environment with changes, as the system wants it.
std::wstring Environment(const std::vector<std::string>& changes) {
    std::vector<std::wstring> all;
    wchar_t* const own = GetEnvironmentStringsW();
    for (const wchar_t* entry = own; *entry != 0; entry += std::wstring_view(entry).size() + 1)
        all.emplace_back(entry);
    FreeEnvironmentStringsW(own);
    for (const std::string& change : changes) {
        const std::wstring wide = Wide(change);
        const std::wstring name = wide.substr(0, wide.find(L'='));
        std::erase_if(all, [&](const std::wstring& entry) { return entry.starts_with(name + L"="); });
        if (name.size() != wide.size()) all.push_back(wide);
    }
    std::wstring block;
    for (const std::wstring& entry : all) block += entry + L'\0';
    return block + L'\0';
}

}  // namespace

Pipe::Pipe(bool childReads) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    if (CreatePipe(&reading, &writing, &inherited, 0) == 0) throw std::runtime_error("no pipe");
    SetHandleInformation(childReads ? writing : reading, HANDLE_FLAG_INHERIT, 0);
}

HANDLE StartChild(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                  HANDLE input, HANDLE output, HANDLE errors) {
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = input;
    start.hStdOutput = output;
    start.hStdError = errors;
    std::wstring line;
    for (const std::string& argument : command) line += (line.empty() ? L"" : L" ") + Quoted(Wide(argument));
    std::wstring block = Environment(environment);
    PROCESS_INFORMATION child{};
    // Once in some ten thousand times Wine starts a program only when it is told so again.
    for (int tries = 1;
         CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                        block.data(), nullptr, &start, &child) == 0;
         ++tries) {
        const DWORD code = GetLastError();
        if (tries == kMostTries)
            throw std::runtime_error("cannot start " + command.front() + ": " + std::to_string(code));
        Sleep(kPauseMilliseconds);
    }
    CloseHandle(child.hThread);
    return child.hProcess;
}

}  // namespace test
