#include "tests/support/ChildProcess.h"

#include <windows.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "TestPlaces.h"

namespace test {

namespace {

std::wstring Wide(const std::string& text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    wide.resize(
        static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), length)));
    return wide;
}

/// The two ends of a pipe, of which a child inherits one.
struct Pipe {
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;

    explicit Pipe(bool childReads) {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        if (CreatePipe(&reading, &writing, &inherited, 0) == 0) throw std::runtime_error("no pipe");
        SetHandleInformation(childReads ? writing : reading, HANDLE_FLAG_INHERIT, 0);
    }
};

std::string ReadAll(HANDLE pipe) {
    std::string text;
    char piece[4096];
    DWORD count = 0;
    while (ReadFile(pipe, piece, sizeof piece, &count, nullptr) != 0 && count != 0) text.append(piece, count);
    CloseHandle(pipe);
    // Text that a child writes through the C library.
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
    return text;
}

void WriteAll(HANDLE pipe, const std::string& text) {
    DWORD count = 0;
    WriteFile(pipe, text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
    CloseHandle(pipe);
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

ChildResult RunChild(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                     const std::string& input) {
    Pipe in(true);
    Pipe out(false);
    Pipe errors(false);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = in.reading;
    start.hStdOutput = out.writing;
    start.hStdError = errors.writing;
    std::wstring line;
    for (const std::string& argument : command) line += (line.empty() ? L"" : L" ") + Quoted(Wide(argument));
    std::wstring block = Environment(environment);
    PROCESS_INFORMATION child{};
    const bool started =
        CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT, block.data(),
                       nullptr, &start, &child) != 0;
    for (const HANDLE handle : {in.reading, out.writing, errors.writing}) CloseHandle(handle);
    if (!started) throw std::runtime_error("cannot start " + command.front());
    ChildResult result{-1, 0, false, {}, {}};
    std::thread writer([&] { WriteAll(in.writing, input); });
    std::thread listener([&] { result.errors = ReadAll(errors.reading); });
    result.output = ReadAll(out.reading);
    writer.join();
    listener.join();
    WaitForSingleObject(child.hProcess, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(child.hProcess, &code);
    constexpr DWORD ofAbort = 3;  // the C library's
    result.exitCode = code == ofAbort ? -1 : static_cast<int>(code);
    result.signal = code == ofAbort ? SIGABRT : 0;
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
    return result;
}

std::string ChildProgram(const std::string& name) {
    return ZBASE_CHILDREN_DIR "/" + name + ".exe";
}

}  // namespace test
