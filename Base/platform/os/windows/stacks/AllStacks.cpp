// The process hangs: any thread may hold the heap's lock, or the loader's, for ever. So a thread is stopped,
// its stack walked, and let go on, one after the other, all of it in memory that comes from the system, and
// the text goes to the file at once. Names need the heap, so another process adds them.

#include <Base/platform/os/stacks/AllStacks.h>
#include <Base/platform/os/windows/files/NativeFile.h>
#include <Base/platform/os/windows/stacks/FrameWalker.h>

#include <windows.h>

#include <psapi.h>
#include <winternl.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

// Bound at load: to look for a function takes the loader's lock and the heap.
extern "C" __declspec(dllimport) NTSTATUS NTAPI
    NtGetNextThread(HANDLE process, HANDLE thread, ACCESS_MASK access, ULONG attributes, ULONG flags,
                    HANDLE* next);

namespace ZBase::os {

namespace {

constexpr ULONGLONG kMillisecondsForAll = 5000;
constexpr std::size_t kMostFrames = 4096;
constexpr DWORD kMostPath = 1024;
constexpr ULONG kThreadName = 38;  // of the kinds of facts
constexpr ACCESS_MASK kAccess = THREAD_GET_CONTEXT | THREAD_SUSPEND_RESUME | THREAD_QUERY_INFORMATION;

/// A file that is written in large pieces, without the C library's streams.
class Text {
public:
    explicit Text(HANDLE file) : mFile(file) {}

    [[gnu::format(__MINGW_PRINTF_FORMAT, 2, 3)]] void Add(const char* format, ...) {
        constexpr std::size_t kLongest = 8192;
        if (sizeof mText - mSize < kLongest) Flush();
        va_list arguments;
        va_start(arguments, format);
        const int length = std::vsnprintf(mText + mSize, kLongest, format, arguments);
        va_end(arguments);
        mSize += static_cast<std::size_t>(std::clamp<int>(length, 0, kLongest - 1));
    }

    bool Flush() {
        DWORD written = 0;
        mIsGood = mIsGood && WriteFile(mFile, mText, static_cast<DWORD>(mSize), &written, nullptr) &&
                  written == mSize;
        mSize = 0;
        return mIsGood;
    }

private:
    HANDLE mFile;  // held, not owned
    bool mIsGood = true;
    std::size_t mSize = 0;
    char mText[std::size_t{1} << 16];
};

/// What a report is made with.
struct Work {
    explicit Work(HANDLE file) : text(file) {}

    void Record(const CONTEXT& context) {
        FrameWalker walker(context, tables);
        count = 0;
        do {
            addresses[count++] = walker.Address();
        } while (count != kMostFrames && walker.Step());
    }

    /// The path of the module that begins there, in `narrow`; empty if it is not known. Asks as a debugger
    /// would, without the loader's lock.
    const char* PathOf(std::uint64_t start) {
        const DWORD length =
            K32GetModuleFileNameExW(GetCurrentProcess(), reinterpret_cast<HMODULE>(start), wide, kMostPath);
        return Narrow(static_cast<int>(length));
    }

    const char* Narrow(int length) {
        const int size =
            WideCharToMultiByte(CP_UTF8, 0, wide, length, narrow, sizeof narrow - 1, nullptr, nullptr);
        narrow[length == 0 ? 0 : size] = 0;
        return narrow;
    }

    Text text;
    KnownTables tables;
    std::size_t count = 0;
    std::uint64_t addresses[kMostFrames];
    wchar_t wide[kMostPath];
    char narrow[3 * kMostPath + 1];
};

void WriteFrames(Work& work) {
    for (std::size_t i = 0; i != work.count; ++i) {
        const std::uint64_t address = work.addresses[i];
        // What stands behind a call may be in the next module.
        const KnownTables::Range module = work.tables.ModuleOf(address - (i == 0 ? 0 : 1));
        if (module.start == 0)
            work.text.Add("  0x%016llX ?\n", address);
        else
            work.text.Add("  0x%016llX %s+0x%llx\n", address, work.PathOf(module.start),
                          address - module.start);
    }
    if (work.count == kMostFrames) work.text.Add("  and more\n");
}

/// The name as it is, but for what would break its line; in `work.narrow`.
const char* NameOf(Work& work, HANDLE thread) {
    alignas(UNICODE_STRING) unsigned char room[4096];
    auto& text = *reinterpret_cast<UNICODE_STRING*>(room);
    ULONG needed = 0;
    *work.narrow = 0;
    // The headers' kinds of facts are fewer than the system's.
    using Query = NTSTATUS(NTAPI*)(HANDLE thread, ULONG kind, void* data, ULONG size, ULONG* needed);
    const auto query = reinterpret_cast<Query>(&NtQueryInformationThread);
    if (query(thread, kThreadName, room, sizeof room, &needed) != 0) return work.narrow;
    const int length = std::min<int>(text.Length / static_cast<int>(sizeof(wchar_t)), kMostPath);
    std::copy_n(text.Buffer, length, work.wide);
    work.Narrow(length);
    for (char* letter = work.narrow; *letter != 0; ++letter) {
        if (static_cast<unsigned char>(*letter) < ' ' || *letter == 0x7F) *letter = '?';
    }
    return work.narrow;
}

/// The walk of a thread, which stands meanwhile.
bool RecordStopped(Work& work, HANDLE thread) {
    if (SuspendThread(thread) == static_cast<DWORD>(-1)) return false;
    CONTEXT context{};
    context.ContextFlags = CONTEXT_FULL;
    const bool isKnown = GetThreadContext(thread, &context) != 0;
    if (isKnown) work.Record(context);
    ResumeThread(thread);
    return isKnown;
}

void WriteThread(Work& work, HANDLE thread, const CONTEXT& own, bool hasTime) {
    const DWORD id = GetThreadId(thread);
    work.text.Add("\nThread %lu \"%s\"", id, NameOf(work, thread));
    work.count = 0;
    if (id == GetCurrentThreadId()) {
        work.Record(own);
        work.text.Add(", running, writes this\n");
    } else if (hasTime && RecordStopped(work, thread)) {
        // A thread that waits does so in the system's own library.
        const auto system = reinterpret_cast<std::uint64_t>(&NtGetNextThread);
        const bool isInSystem =
            work.tables.ModuleOf(work.addresses[0]).start == work.tables.ModuleOf(system).start;
        work.text.Add(isInSystem ? ", in the system\n" : ", running\n");
    } else {
        work.text.Add(", could not be stopped\n");
    }
    WriteFrames(work);
}

bool WriteStacks(Work& work, const CONTEXT& own) {
    const ULONGLONG end = GetTickCount64() + kMillisecondsForAll;
    // Without a module it would be asked of the process, which takes the heap.
    const auto program = reinterpret_cast<std::uint64_t>(GetModuleHandleW(nullptr));
    work.text.Add("Stacks of process %lu, %s\n", GetCurrentProcessId(), work.PathOf(program));
    HANDLE thread = nullptr;
    for (HANDLE following = nullptr;
         NtGetNextThread(GetCurrentProcess(), thread, kAccess, 0, 0, &following) == 0; thread = following) {
        if (thread != nullptr) CloseHandle(thread);
        WriteThread(work, following, own, GetTickCount64() < end);
    }
    if (thread != nullptr) CloseHandle(thread);
    work.text.Add("\nModules\n");
    for (std::size_t i = 0; work.tables.ModuleAt(i).start != 0; ++i) {
        const KnownTables::Range module = work.tables.ModuleAt(i);
        work.text.Add("  0x%016llX 0x%016llX - %s\n", module.start, module.end, work.PathOf(module.start));
    }
    return work.text.Flush();
}

/// A path in the forms that it goes through.
struct Path {
    wchar_t given[NativeName::kLongest];
    wchar_t whole[NativeName::kLongest];
    NativeName name;
};

// The usual call takes the heap for the name.
HANDLE OpenFile(const char* path) {
    void* const pages = VirtualAlloc(nullptr, sizeof(Path), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (pages == nullptr) return INVALID_HANDLE_VALUE;
    Path& place = *static_cast<Path*>(pages);
    constexpr DWORD longest = NativeName::kLongest;
    HANDLE file = INVALID_HANDLE_VALUE;
    if (MultiByteToWideChar(CP_UTF8, 0, path, -1, place.given, longest) != 0) {
        const DWORD length = GetFullPathNameW(place.given, longest, place.whole, nullptr);
        if (length != 0 && length < longest) file = MakeNativeFile(place.whole, place.name);
    }
    VirtualFree(pages, 0, MEM_RELEASE);
    return file;
}

}  // namespace

bool WriteAllStacks(const char* path) {
    CONTEXT own;
    RtlCaptureContext(&own);
    const HANDLE file = OpenFile(path);
    if (file == INVALID_HANDLE_VALUE) return false;
    void* const pages = VirtualAlloc(nullptr, sizeof(Work), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    const bool written = pages != nullptr && WriteStacks(*::new (pages) Work(file), own);
    if (pages != nullptr) VirtualFree(pages, 0, MEM_RELEASE);
    CloseHandle(file);
    return written;
}

}  // namespace ZBase::os
