#include "Child.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/messages/SystemErrors.h>
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
    std::string reason = Narrow(ZBase::GetWin32APIErrorDescriptionOrNULL(code, 0).c_str());
    reason.erase(reason.find_last_not_of("\r\n.") + 1);
    return Failure(program + ": " + reason);
}

/// The list of handles that a child inherits.
class Inheritance {
public:
    explicit Inheritance(std::vector<HANDLE> handles) : mHandles(std::move(handles)) {
        std::erase(mHandles, nullptr);
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        mRoom.resize(size);
        mIsMade = InitializeProcThreadAttributeList(Get(), 1, 0, &size) != 0;
        if (mIsMade && !mHandles.empty())
            UpdateProcThreadAttribute(Get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, mHandles.data(),
                                      mHandles.size() * sizeof(HANDLE), nullptr, nullptr);
    }
    ~Inheritance() {
        if (mIsMade) DeleteProcThreadAttributeList(Get());
    }
    Inheritance(const Inheritance&) = delete;
    Inheritance& operator=(const Inheritance&) = delete;

    LPPROC_THREAD_ATTRIBUTE_LIST Get() {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(mRoom.data());
    }

private:
    std::vector<HANDLE> mHandles;
    std::vector<unsigned char> mRoom;
    bool mIsMade = false;
};

}  // namespace

Pipe::Pipe(bool childReads) {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    if (!CreatePipe(reading.Place(), writing.Place(), &inheritable, 0))
        throw SystemFailure("pipe", GetLastError());
    SetHandleInformation(childReads ? writing.Get() : reading.Get(), HANDLE_FLAG_INHERIT, 0);
}

HANDLE StartChild(const std::vector<std::string>& command, HANDLE input, HANDLE output, HANDLE errors,
                  DWORD& id) {
    std::wstring line;
    for (const std::string& argument : command) AppendQuoted(line, ZBase::os::FromUtf8(argument));
    // The own streams may be handles that are not inherited.
    for (const HANDLE handle : {input, output, errors})
        if (handle != nullptr) SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    Inheritance inheritance({input, output, errors});
    STARTUPINFOEXW start{};
    start.StartupInfo.cb = sizeof start;
    start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    start.StartupInfo.hStdInput = input;
    start.StartupInfo.hStdOutput = output;
    start.StartupInfo.hStdError = errors;
    start.lpAttributeList = inheritance.Get();
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &start.StartupInfo,
                        &process))
        throw SystemFailure(command[0], GetLastError());
    CloseHandle(process.hThread);
    id = process.dwProcessId;
    return process.hProcess;
}

std::string ReadToTheEnd(HANDLE pipe) {
    std::string output;
    char piece[65536];
    DWORD count = 0;
    while (ReadFile(pipe, piece, sizeof piece, &count, nullptr) && count != 0) output.append(piece, count);
    return output;
}

DWORD EndOf(HANDLE process) {
    DWORD status = 0;
    WaitForSingleObject(process, INFINITE);
    GetExitCodeProcess(process, &status);
    return status;
}
