// Starting a process takes the heap, so one for the crash is started while the handler is made, and waits.

#include <Base/platform/os/windows/crash/SenderProcess.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

#include <windows.h>

#include <atomic>
#include <cwchar>
#include <new>
#include <string>
#include <vector>

namespace ZBase::os {

namespace {

constexpr wchar_t kSender[] = L"zbase-crash-sender.exe";
constexpr DWORD kPipeOctets = 1 << 16;

/// The path of a file beside this library; empty if there is none.
std::wstring BesideLibrary(const wchar_t* name, std::wstring& directory) {
    HMODULE self = nullptr;
    constexpr DWORD flags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExW(flags, reinterpret_cast<const wchar_t*>(&BesideLibrary), &self)) return {};
    constexpr DWORD kLongestPath = 0x8000;
    std::wstring path(kLongestPath, 0);
    const DWORD length = GetModuleFileNameW(self, path.data(), kLongestPath);
    if (length == 0 || length == kLongestPath) return {};
    path.resize(path.rfind(L'\\', length) + 1);
    directory = path;
    path += name;
    return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES ? std::wstring() : path;
}

/// What a new process inherits, and nothing else.
class InheritedHandles {
public:
    explicit InheritedHandles(HANDLE* handles, std::size_t count) {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        mRoom.resize(size);
        auto* const list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(mRoom.data());
        if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) return;
        mpList = list;
        if (!UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                       count * sizeof *handles, nullptr, nullptr)) {
            DeleteProcThreadAttributeList(mpList);
            mpList = nullptr;
        }
    }
    ~InheritedHandles() {
        if (mpList != nullptr) DeleteProcThreadAttributeList(mpList);
    }
    InheritedHandles(const InheritedHandles&) = delete;
    InheritedHandles& operator=(const InheritedHandles&) = delete;

    LPPROC_THREAD_ATTRIBUTE_LIST Get() const { return mpList; }

private:
    std::vector<unsigned char> mRoom;
    LPPROC_THREAD_ATTRIBUTE_LIST mpList = nullptr;
};

}  // namespace

bool SenderProcess::Start() {
    Close();
    try {
        std::wstring directory;
        std::wstring program = BesideLibrary(kSender, directory);
        HANDLE other = INVALID_HANDLE_VALUE;
        if (program.empty() || !Connect(other)) return false;
        std::wstring commandLine = L"\"" + program + L"\"";
        STARTUPINFOEXW start{};
        start.StartupInfo.cb = sizeof start;
        start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
        start.StartupInfo.hStdInput = other;
        start.StartupInfo.hStdOutput = other;
        const InheritedHandles inherited(&other, 1);
        start.lpAttributeList = inherited.Get();
        PROCESS_INFORMATION process{};
        // Not ended by the keys that end this one, and in nobody's way in a directory.
        const bool isStarted =
            CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                           EXTENDED_STARTUPINFO_PRESENT | CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP,
                           nullptr, directory.c_str(), &start.StartupInfo, &process) != 0;
        CloseHandle(other);
        if (isStarted) {
            CloseHandle(process.hThread);
            CloseHandle(process.hProcess);
        } else {
            Close();
        }
        return isStarted;
    } catch (const std::bad_alloc&) {
        Close();
        return false;
    }
}

char SenderProcess::Ask(const ReportPiece* pieces, std::size_t count, DWORD milliseconds) {
    if (!IsOpen()) return 0;
    const ULONGLONG end = GetTickCount64() + milliseconds;
    std::uint32_t size = 0;
    for (std::size_t i = 0; i != count; ++i) size += static_cast<std::uint32_t>(pieces[i].length);
    bool isSent = Transfer(true, &size, sizeof size, end);
    for (std::size_t i = 0; i != count && isSent; ++i)
        isSent =
            Transfer(true, const_cast<char*>(pieces[i].start), static_cast<DWORD>(pieces[i].length), end);
    char answer = 0;
    return isSent && Transfer(false, &answer, 1, end) ? answer : static_cast<char>(0);
}

void SenderProcess::Close() {
    if (mConnection != nullptr) CloseHandle(mConnection);
    if (mEvent != nullptr) CloseHandle(mEvent);
    mConnection = nullptr;
    mEvent = nullptr;
}

// A pipe that can be waited for has a name.
bool SenderProcess::Connect(HANDLE& other) {
    static std::atomic<unsigned int> sNumber{0};
    LARGE_INTEGER ticks{};
    QueryPerformanceCounter(&ticks);
    wchar_t name[96];
    std::swprintf(name, std::size(name), L"\\\\.\\pipe\\zbase-crash-%lu-%u-%llx", GetCurrentProcessId(),
                  ++sNumber, static_cast<unsigned long long>(ticks.QuadPart));
    OwnersOnly owner;
    mEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    mConnection = CreateNamedPipeW(
        name, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_REJECT_REMOTE_CLIENTS, 1, kPipeOctets, kPipeOctets, 0, owner.Get());
    if (mConnection == INVALID_HANDLE_VALUE) mConnection = nullptr;
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    if (mEvent != nullptr && mConnection != nullptr)
        other = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, &inheritable, OPEN_EXISTING, 0, nullptr);
    if (other != INVALID_HANDLE_VALUE) return true;
    Close();
    return false;
}

bool SenderProcess::Transfer(bool writes, void* octets, DWORD size, ULONGLONG end) {
    for (DWORD done = 0; done != size;) {
        OVERLAPPED transfer{};
        transfer.hEvent = mEvent;
        char* const place = static_cast<char*>(octets) + done;
        const BOOL isDone = writes ? WriteFile(mConnection, place, size - done, nullptr, &transfer)
                                   : ReadFile(mConnection, place, size - done, nullptr, &transfer);
        if (!isDone && GetLastError() != ERROR_IO_PENDING) return false;
        const ULONGLONG now = GetTickCount64();
        if (WaitForSingleObject(mEvent, now < end ? static_cast<DWORD>(end - now) : 0) != WAIT_OBJECT_0)
            CancelIoEx(mConnection, &transfer);
        DWORD count = 0;
        if (!GetOverlappedResult(mConnection, &transfer, &count, TRUE) || count == 0) return false;
        done += count;
    }
    return true;
}

}  // namespace ZBase::os
