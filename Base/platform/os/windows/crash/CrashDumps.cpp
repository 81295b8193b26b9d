// The path of a crash. The thread that crashed is in a filter of the system, or in `abort`; any lock may be
// held, the heap may be broken, its stack nearly used up. So all that is needed is set aside while the
// handler is made: a sender that waits, directories, and what a report is made of. The process ends here,
// with the code of its exception, as the system itself would end it.

#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/crash/CrashEquipment.h>
#include <Base/platform/os/windows/crash/CrashTurns.h>
#include <Base/platform/os/windows/crash/DumpWriter.h>
#include <Base/platform/os/windows/files/NativeFile.h>

#include <windows.h>

#include <csignal>
#include <cstdlib>
#include <new>

namespace ZBase::os {

namespace {

constexpr DWORD kThrown = 0x20474343;  // an exception of the language, with bits for its kinds
constexpr DWORD kThrownMask = 0x20FFFFFF;
constexpr DWORD kAborted = 0x40000015;           // the system's code for a program that ends itself
constexpr DWORD kOnDemand = 0xC0000025;          // of a dump without a crash
constexpr DWORD kInvalidParameter = 0xC000000D;  // of a call of the C library
constexpr UINT kEndOfAbort = 3;
constexpr ULONG kCrashStack = 64 * 1024;

using SetInvalidParameterHandler = InvalidParameterHandler(__cdecl*)(InvalidParameterHandler);

}  // namespace

constinit CrashEquipment gEquipment{};

class DumpHandler {
public:
    DumpHandler(const std::wstring& directory, DumpUser user, DumpLimits limits)
        : mCrashes(directory, user, false, limits), mDemands(directory, user, true, limits) {}

    DumpWriter mCrashes;
    DumpWriter mDemands;
    DumpHandler* mpOlder = nullptr;  // owned
};

namespace {

/// The rights of the process, on a thread that acts for a client. No heap.
class OwnRights {
public:
    OwnRights() {
        if (!OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &mClient)) mClient = nullptr;
        if (mClient != nullptr) RevertToSelf();
    }
    ~OwnRights() {
        if (mClient == nullptr) return;
        SetThreadToken(nullptr, mClient);
        CloseHandle(mClient);
    }
    OwnRights(const OwnRights&) = delete;
    OwnRights& operator=(const OwnRights&) = delete;

private:
    HANDLE mClient = nullptr;
};

// Ends the process, unless the crash is for others to handle. Runs on the crashed thread. No heap, no lock.
void HandleCrash(EDumpCause cause, EXCEPTION_POINTERS* pointers, UINT end) {
    const OwnRights rights;
    DumpHandler* const handler = gEquipment.newest;
    if (handler == nullptr || !TakeCrash()) return WaitForCrash();
    if (handler->mCrashes.Write(cause, pointers)) TerminateProcess(GetCurrentProcess(), end);
    LeaveCrash();
}

LONG WINAPI FilterException(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    // Back in its throw it is known that nobody catches it.
    if ((record.ExceptionCode & kThrownMask) == kThrown &&
        (record.ExceptionFlags & EXCEPTION_NONCONTINUABLE) == 0)
        return EXCEPTION_CONTINUE_EXECUTION;
    const auto before = gEquipment.filterBefore;
    if (gEquipment.asksEarlier && before != nullptr && before(pointers) == EXCEPTION_CONTINUE_EXECUTION)
        return EXCEPTION_CONTINUE_EXECUTION;
    HandleCrash(EDumpCause::eFault, pointers, record.ExceptionCode);
    return before == nullptr ? static_cast<LONG>(EXCEPTION_CONTINUE_SEARCH) : before(pointers);
}

/// The state of the calling thread as that of an exception.
struct OwnState {
    explicit OwnState(DWORD code) {
        RtlCaptureContext(&context);
        record.ExceptionCode = code;
        record.ExceptionAddress = __builtin_return_address(0);
    }

    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
};

void __cdecl HandleAbort(int signal) {
    OwnState state(kAborted);
    HandleCrash(EDumpCause::eAbort, &state.pointers, kEndOfAbort);
    if (gEquipment.abortBefore != SIG_DFL && gEquipment.abortBefore != SIG_IGN)
        gEquipment.abortBefore(signal);
}

void __cdecl HandleInvalidParameter(const wchar_t* expression, const wchar_t* function, const wchar_t* file,
                                    unsigned int line, uintptr_t reserved) {
    OwnState state(kInvalidParameter);
    HandleCrash(EDumpCause::eFault, &state.pointers, kInvalidParameter);
    if (gEquipment.invalidBefore != nullptr)
        gEquipment.invalidBefore(expression, function, file, line, reserved);
}

// Not every C library has it.
InvalidParameterHandler ExchangeInvalidParameterHandler(InvalidParameterHandler handler) {
    const HMODULE library = GetModuleHandleW(L"msvcrt.dll");
    const auto set = library == nullptr
                         ? nullptr
                         : reinterpret_cast<SetInvalidParameterHandler>(reinterpret_cast<void*>(
                               GetProcAddress(library, "_set_invalid_parameter_handler")));
    return set == nullptr ? nullptr : set(handler);
}

// An end by another thread must not come before that of the crash.
int __cdecl AwaitCrashAtExit() {
    WaitForCrash();
    return 0;
}

// What this library registers by itself is called at its unload, when no other thread is left.
void AwaitCrashesAtExit() {
    using OnExit = int(__cdecl*)();
    const HMODULE library = GetModuleHandleW(L"msvcrt.dll");
    const auto add = library == nullptr ? nullptr
                                        : reinterpret_cast<OnExit(__cdecl*)(OnExit)>(
                                              reinterpret_cast<void*>(GetProcAddress(library, "_onexit")));
    if (add != nullptr) add(AwaitCrashAtExit);
}

void InstallHandlers() {
    if (gEquipment.isInstalled.exchange(true)) return;
    gEquipment.filterBefore = SetUnhandledExceptionFilter(FilterException);
    gEquipment.abortBefore = std::signal(SIGABRT, HandleAbort);
    gEquipment.invalidBefore = ExchangeInvalidParameterHandler(HandleInvalidParameter);
}

// Those that were set since stay.
void RestoreHandlers() {
    if (!gEquipment.isInstalled.exchange(false)) return;
    const auto filter = SetUnhandledExceptionFilter(gEquipment.filterBefore);
    if (filter != FilterException) SetUnhandledExceptionFilter(filter);
    const auto abortHandler = std::signal(SIGABRT, gEquipment.abortBefore);
    if (abortHandler != HandleAbort) std::signal(SIGABRT, abortHandler);
    const auto invalid = ExchangeInvalidParameterHandler(gEquipment.invalidBefore);
    if (invalid != HandleInvalidParameter) ExchangeInvalidParameterHandler(invalid);
}

std::wstring AbsoluteDirectory(const unsigned short* directory) {
    constexpr DWORD kLongest = 0x7F00;  // leaves room for a name
    std::wstring path(kLongest, 0);
    const DWORD length = GetFullPathNameW(ToSystem(directory), kLongest, path.data(), nullptr);
    path.resize(length < kLongest ? length : 0);
    return path;
}

}  // namespace

DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpUser user, DumpLimits limits) {
    StayLoaded();  // what is registered stays, as does its thread
    static const bool sAwaits = (AwaitCrashesAtExit(), true);
    std::wstring absolute;
    DumpHandler* handler = nullptr;
    try {
        absolute = AbsoluteDirectory(directory);
        if (absolute.empty() || !sAwaits || !PrepareInsideDumps()) return nullptr;
        handler = new DumpHandler(absolute, user, limits);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    gEquipment.asksEarlier = limits.asksEarlier;
    InstallCrashStack();
    handler->mpOlder = gEquipment.newest;
    gEquipment.newest = handler;
    InstallHandlers();
    return handler;
}

void DestroyDumpHandlers(DumpHandler* newest) {
    if (newest == nullptr) return;
    if (!TakeCrash()) WaitForCrash();
    RestoreHandlers();
    LeaveCrash();
    gEquipment.newest = nullptr;
    while (newest != nullptr) {
        DumpHandler* const older = newest->mpOlder;
        delete newest;
        newest = older;
    }
}

bool WriteDump(DumpHandler* handler) {
    const OwnRights rights;
    OwnState state(kOnDemand);
    return handler->mDemands.Write(EDumpCause::eDemand, &state.pointers);
}

namespace {

// Where a stack is given its memory as a whole, its guard page is the last one, and what is guaranteed comes
// too late. The system moves a guard down until it reaches that, so there is one further up.
void MoveGuardUp() {
    constexpr ULONG_PTR kPage = 4096;
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    MEMORY_BASIC_INFORMATION last{};
    const ULONG_PTR place = low + kPage + kCrashStack + 4 * kPage;
    const auto here = reinterpret_cast<ULONG_PTR>(&last);
    const bool isKnown = VirtualQuery(reinterpret_cast<void*>(low + kPage), &last, sizeof last) != 0;
    if (!isKnown || last.State != MEM_COMMIT || (last.Protect & PAGE_GUARD) == 0 || here < place + 4 * kPage)
        return;
    DWORD before = 0;
    VirtualProtect(reinterpret_cast<void*>(place), kPage, PAGE_READWRITE | PAGE_GUARD, &before);
}

}  // namespace

bool SharesMemory() {
    return false;
}

bool InstallCrashStack() {
    ULONG size = kCrashStack;
    if (SetThreadStackGuarantee(&size) == 0) return false;
    MoveGuardUp();
    return true;
}

void PrepareAbortMessage() {}

// The C library writes what it says and keeps nothing.
std::size_t CopyAbortMessage(char* text, std::size_t) {
    *text = 0;
    return 0;
}

namespace {

bool Widen(const char* path) {
    return MultiByteToWideChar(CP_UTF8, 0, path, -1, gEquipment.path, CrashEquipment::kLongestPath) != 0;
}

}  // namespace

void DeleteDump(const char* path) {
    if (Widen(path)) DeleteNativeFile(gEquipment.path);
}

void MarkDumpSent(const char* path) {
    const HANDLE file =
        Widen(path) ? OpenNativeFile(gEquipment.path, OPEN_EXISTING, nullptr) : INVALID_HANDLE_VALUE;
    if (file == INVALID_HANDLE_VALUE) return;
    LARGE_INTEGER end{};
    DWORD written = 0;
    if (SetFilePointerEx(file, end, nullptr, FILE_END))
        WriteFile(file, kSentMark, sizeof kSentMark - 1, &written, nullptr);
    CloseHandle(file);
}

}  // namespace ZBase::os
