#include <Base/platform/os/processes/Processes.h>
#include <Base/platform/os/windows/WideText.h>

#define PSAPI_VERSION 2  // the names that the system's core library has
#include <windows.h>

#include <psapi.h>

namespace ZBase::os {

namespace {

using MemoryInfo = BOOL(WINAPI*)(HANDLE, PROCESS_MEMORY_COUNTERS*, DWORD);

MemoryInfo sMemoryInfo = nullptr;

/// Given back at the end of the process.
struct Library {
    ~Library() {
        if (handle != nullptr) FreeLibrary(handle);
    }
    HMODULE handle;
};

}  // namespace

Process OpenProcess(unsigned int id, EProcessAccess access) {
    const DWORD right = access == EProcessAccess::Query ? PROCESS_QUERY_INFORMATION : SYNCHRONIZE;
    return ::OpenProcess(right, FALSE, id);
}

void CloseProcess(Process process, EProcessAccess) {
    if (process != nullptr) CloseHandle(process);
}

EWaitResult WaitForProcess(Process process, unsigned int milliseconds) {
    if (process == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return EWaitResult::Failed;
    }
    switch (WaitForSingleObject(process, milliseconds)) {
        case WAIT_OBJECT_0:
            return EWaitResult::Ended;
        case WAIT_TIMEOUT:
            return EWaitResult::Timeout;
        default:
            return EWaitResult::Failed;
    }
}

bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity) {
    return process != nullptr && K32GetProcessImageFileNameW(process, ToSystem(path), capacity) != 0;
}

unsigned short PathSeparator() {
    return '\\';
}

std::basic_string<unsigned short> CommandLine() {
    const std::wstring_view line = GetCommandLineW();
    return {line.begin(), line.end()};
}

EMemoryCounters OpenMemoryCounters() {
    static const Library library{LoadLibraryW(L"psapi.dll")};
    if (library.handle == nullptr) return EMemoryCounters::NoModule;
    sMemoryInfo = reinterpret_cast<MemoryInfo>(
        reinterpret_cast<void*>(GetProcAddress(library.handle, "GetProcessMemoryInfo")));
    return sMemoryInfo == nullptr ? EMemoryCounters::NoFunction : EMemoryCounters::Ready;
}

bool GetCommittedBytes(std::uint64_t& bytes) {
    PROCESS_MEMORY_COUNTERS counters{};
    static_assert(sizeof counters == 72);
    if (sMemoryInfo == nullptr || sMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) == 0)
        return false;
    bytes = counters.PagefileUsage;
    return true;
}

}  // namespace ZBase::os
