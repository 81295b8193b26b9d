#include "tools/system/Programs.h"
#include "Child.h"
#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/frame/Environment.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#include <shellapi.h>

#include <fcntl.h>
#include <io.h>
#include <cerrno>
#include <filesystem>

namespace {

std::string FileOfModule(HMODULE module) {
    constexpr DWORD longest = 0x8000;
    std::wstring path(longest, 0);
    path.resize(GetModuleFileNameW(module, path.data(), longest));
    return ZBase::os::ToUtf8(path);
}

}  // namespace

std::vector<std::string> StartProgram(int, char**) {
    _setmode(1, _O_BINARY);
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i) arguments.push_back(ZBase::os::ToUtf8(wide[i]));
    LocalFree(wide);
    return arguments;
}

std::string ThisProgram() {
    return FileOfModule(nullptr);
}

std::string ProgramDirectory() {
    return std::filesystem::path(ThisProgram()).parent_path().string();
}

std::string FileOfCode(const void* code) {
    constexpr DWORD here =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE module = nullptr;
    return GetModuleHandleExW(here, static_cast<const wchar_t*>(code), &module) ? FileOfModule(module) : "";
}

std::string ProgramIn(const std::string& directory, const std::string& name) {
    const std::filesystem::path program = std::filesystem::path(directory) / (name + ".exe");
    std::error_code none;
    if (std::filesystem::is_regular_file(program, none)) return program.string();
    errno = ENOENT;
    return "";
}

std::vector<std::string> ProgramDirectories() {
    const std::string path = Narrow(ZBase::ReadEnvironmentVariable(Wide("PATH").c_str()).c_str());
    std::vector<std::string> directories;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find(';', at), path.size());
        directories.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return directories;
}

std::string TextOfTheSystem() {
    wchar_t directory[MAX_PATH] = L"";
    GetWindowsDirectoryW(directory, MAX_PATH);
    return ZBase::os::ToUtf8(directory) + "\\win.ini";
}

std::string OutputOf(const std::vector<std::string>& command) {
    Pipe pipe(false);
    DWORD id = 0;
    const Handle process(StartChild(command, nullptr, pipe.writing.Get(), nullptr, id));
    pipe.writing.Close();
    std::string output = ReadToTheEnd(pipe.reading.Get());
    for (std::size_t at = 0; (at = output.find("\r\n", at)) != std::string::npos;) output.erase(at, 1);
    if (EndOf(process.Get()) != 0 && output.empty()) throw Failure(command[0] + " failed");
    return output;
}

BackgroundProgram::BackgroundProgram(const std::vector<std::string>& command) {
    Pipe pipe(false);
    DWORD id = 0;
    const HANDLE process =
        StartChild(command, nullptr, pipe.writing.Get(), GetStdHandle(STD_ERROR_HANDLE), id);
    mProcess = reinterpret_cast<std::intptr_t>(process);
    pipe.writing.Close();
    char letter = 0;
    DWORD count = 0;
    while (ReadFile(pipe.reading.Get(), &letter, 1, &count, nullptr) && count == 1 && letter != '\n')
        mFirstLine += letter;
    mFirstLine.erase(mFirstLine.find_last_not_of('\r') + 1);
    if (!mFirstLine.empty()) return;
    End();
    throw Failure(command[0] + " does not start");
}

BackgroundProgram::~BackgroundProgram() {
    End();
}

void BackgroundProgram::End() const {
    const Handle process(reinterpret_cast<HANDLE>(mProcess));
    TerminateProcess(process.Get(), 1);
    WaitForSingleObject(process.Get(), INFINITE);
}
