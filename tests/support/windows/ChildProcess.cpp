#include "tests/support/ChildProcess.h"

#include <csignal>
#include <thread>

#include "TestPlaces.h"
#include "tests/support/windows/StartChild.h"

namespace test {

namespace {

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

}  // namespace

ChildResult RunChild(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                     const std::string& input) {
    Pipe in(true);
    Pipe out(false);
    Pipe errors(false);
    const HANDLE child = StartChild(command, environment, in.reading, out.writing, errors.writing);
    for (const HANDLE handle : {in.reading, out.writing, errors.writing}) CloseHandle(handle);
    ChildResult result{-1, 0, false, {}, {}};
    std::thread writer([&] { WriteAll(in.writing, input); });
    std::thread listener([&] { result.errors = ReadAll(errors.reading); });
    result.output = ReadAll(out.reading);
    writer.join();
    listener.join();
    WaitForSingleObject(child, INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(child, &code);
    constexpr DWORD ofAbort = 3;  // the C library's
    result.exitCode = code == ofAbort ? -1 : static_cast<int>(code);
    result.signal = code == ofAbort ? SIGABRT : 0;
    CloseHandle(child);
    return result;
}

std::string ChildProgram(const std::string& name) {
    return ZBASE_CHILDREN_DIR "/" + name + ".exe";
}

}  // namespace test
