// The process hangs: any thread may hold the heap's lock, or the loader's, for ever. So each thread in turn
// is stopped, walked and resumed, all in memory from mmap, and the text is written at once. Names need the
// heap, so another process adds them. That process gets the path only and reads the file.

#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/processes/CancellationHeldBack.h>
#include <Base/platform/os/linux/processes/HelperProcess.h>
#include <Base/platform/os/linux/processes/OwnProc.h>
#include <Base/platform/os/linux/processes/ProgramStart.h>
#include <Base/platform/os/linux/processes/ThreadFiles.h>
#include <Base/platform/os/linux/stacks/ThreadStops.h>
#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>
#include <Base/platform/os/stacks/AllStacks.h>

#include <dirent.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

namespace ZBase::os {

namespace {

constexpr long kSecond = 1'000'000'000;
constexpr long kForAll = 5 * kSecond;
constexpr unsigned int kSecondsForNames = 5;
constexpr std::size_t kMostFrames = 4096;
constexpr std::size_t kMostModules = 1024;
constexpr std::size_t kPaths = std::size_t{1} << 18;

constexpr char kNames[] = "zbase-stack-names";

long Now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

/// The program's path; without /proc the one that it was started by.
void ReadProgram(char (&path)[PATH_MAX]) {
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    path[std::max<ssize_t>(length, 0)] = 0;
    const char* const started = ProgramAsStarted();
    if (length <= 0 && started != nullptr) std::snprintf(path, sizeof path, "%s", started);
}

/// A file that is written in large pieces, without the C library's streams.
class Text {
public:
    explicit Text(int file) : mFile(file) {}

    [[gnu::format(printf, 2, 3)]] void Add(const char* format, ...) {
        constexpr std::size_t kLongest = 8192;
        if (sizeof mText - mSize < kLongest) Flush();
        va_list arguments;
        va_start(arguments, format);
        const int length = std::vsnprintf(mText + mSize, kLongest, format, arguments);
        va_end(arguments);
        mSize += static_cast<std::size_t>(std::clamp<int>(length, 0, kLongest - 1));
    }

    bool Flush() {
        for (std::size_t done = 0; done != mSize && mIsGood;) {
            const ssize_t count = write(mFile, mText + done, mSize - done);
            if (count > 0) done += static_cast<std::size_t>(count);
            mIsGood = count > 0 || (count < 0 && errno == EINTR);
        }
        mSize = 0;
        return mIsGood;
    }

private:
    int mFile;  // held, not owned
    bool mIsGood = true;
    std::size_t mSize = 0;
    char mText[std::size_t{1} << 16];
};

/// The modules of the frames, copied: the loader's data may be unmapped meanwhile.
class MetModules {
public:
    struct Module {
        std::uint64_t start;
        std::uint64_t end;
        std::uint64_t bias;  // the difference between addresses in memory and in the file
        const char* path;
        char id[2 * 32 + 1];  // hexadecimal; "-" if it has none
    };

    /// Null if the address is in none, or the table is full.
    const Module* Find(std::uint64_t address) {
        for (Module& module : *this) {
            if (address >= module.start && address < module.end) return &module;
        }
        ModulePlace place{};
        if (mCount == kMostModules || !ModulePlace::Find(address, place)) return nullptr;
        Module& module = mModules[mCount];
        module = {place.start, place.end, place.map->l_addr, mPaths + mUsed, "-"};
        if (!AddPath(place.map->l_name)) return nullptr;
        std::size_t length = 0;
        for (const char octet : place.BuildId().substr(0, sizeof module.id / 2)) {
            std::snprintf(module.id + length, 3, "%02x", static_cast<unsigned int>(octet) & 0xFF);
            length += 2;
        }
        ++mCount;
        return &module;
    }

    Module* begin() { return mModules; }
    Module* end() { return mModules + mCount; }

private:
    bool AddPath(const char* name) {
        char program[PATH_MAX];
        if (*name == 0) {
            ReadProgram(program);
            name = program;
        }
        const std::size_t size = strnlen(name, PATH_MAX) + 1;
        if (size > kPaths - mUsed) return false;
        std::memcpy(mPaths + mUsed, name, size - 1);
        mUsed += size;
        return true;
    }

    std::size_t mCount = 0;
    std::size_t mUsed = 0;
    Module mModules[kMostModules];
    char mPaths[kPaths];
};

/// The memory of a report.
struct Work {
    explicit Work(int file) : text(file) {}

    void Record(const ThreadContext& context) {
        memory.Forget();
        FrameWalker walker(context, {ForeignMemory::Load, &memory}, nullptr);
        count = 0;
        do {
            addresses[count++] = walker.Address();
        } while (count != kMostFrames && walker.Step());
    }

    Text text;
    ForeignMemory memory;
    MetModules modules;
    std::size_t count = 0;
    std::uint64_t addresses[kMostFrames];
    HelperLaunch launch{};
    HelperProgram names{};
    Work* next = nullptr;
};

// Those that a helper still ran on when their call was over.
constinit std::atomic<Work*> gLeft{nullptr};

void Unmap(Work* work) {
    if (work->launch.Take()) {
        munmap(work, sizeof(Work));
        return;
    }
    work->next = gLeft;
    while (!gLeft.compare_exchange_weak(work->next, work)) {
    }
}

void UnmapThoseLeft() {
    for (Work* work = gLeft.exchange(nullptr); work != nullptr;) {
        Work* const next = work->next;
        Unmap(work);
        work = next;
    }
}

/// The instruction and stack pointers of a thread that sleeps in a system call, from /proc.
bool FindEntry(pid_t thread, ThreadContext& context) {
    char room[512];
    std::string_view text = ReadThreadFile(thread, "syscall", room, sizeof room);
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const std::size_t address = text.rfind(" 0x");
    if (address == std::string_view::npos || address == 0) return false;
    const std::size_t stack = text.rfind(" 0x", address - 1);
    if (stack == std::string_view::npos) return false;
    const std::uint64_t instruction = NumberBehind(text.substr(address), " 0x", 16);
    const std::uint64_t stackPointer = NumberBehind(text.substr(stack), " 0x", 16);
    SetPlace(context, instruction, stackPointer);
    return instruction != 0 && stackPointer != 0;
}

const char* Describe(char state) {
    switch (state) {
        case 'R':
            return "running";
        case 'S':
            return "sleeping";
        case 'D':
            return "sleeping without taking signals";
        case 'T':
        case 't':
            return "stopped from outside";
        case 'I':
            return "idle";
        default:
            return "ended";
    }
}

void WriteFrames(Work& work) {
    for (std::size_t i = 0; i != work.count; ++i) {
        const std::uint64_t address = work.addresses[i];
        // The address after a call may be in the next module.
        const MetModules::Module* const module = work.modules.Find(address - (i == 0 ? 0 : 1));
        if (module == nullptr)
            work.text.Add("  0x%016lX ?\n", static_cast<unsigned long>(address));
        else
            work.text.Add("  0x%016lX %s+0x%lx\n", static_cast<unsigned long>(address), module->path,
                          static_cast<unsigned long>(address - module->bias));
    }
    if (work.count == kMostFrames) work.text.Add("  and more\n");
}

/// The name, cut at a line feed.
std::string_view NameOf(pid_t thread, char* room, std::size_t capacity) {
    const std::string_view name = ReadThreadFile(thread, "comm", room, capacity);
    for (char* letter = room; letter != room + name.size(); ++letter) {
        if (static_cast<unsigned char>(*letter) < ' ' || *letter == 0x7F) *letter = '?';
    }
    return name.substr(0, name.empty() ? 0 : name.size() - 1);  // without the line feed
}

void WriteThread(Work& work, ThreadStops& stops, pid_t thread, const ThreadContext& own, long left) {
    char room[4096];
    const std::string_view name = NameOf(thread, room, sizeof room);
    work.text.Add("\nThread %d \"%.*s\"", static_cast<int>(thread), static_cast<int>(name.size()),
                  name.data());
    const std::string_view status = ReadThreadFile(thread, "status", room, sizeof room);
    const std::size_t place = status.find("State:\t");
    char state = place == std::string_view::npos ? 'X' : status[place + 7];
    ThreadContext context{};
    const char* remark = "";
    const auto record = [](void* argument, const ThreadContext& stopped) {
        static_cast<Work*>(argument)->Record(stopped);
    };
    const bool mayAnswer = state == 'R' || state == 'S';
    work.count = 0;
    if (thread == gettid()) {
        work.Record(own);
        state = 'R';  // whatever can be read of it
        remark = ", writes this";
    } else if (left <= 0 || !mayAnswer || !stops.Visit(thread, std::min(left, kSecond), record, &work)) {
        remark = ", could not be stopped";
        if (FindEntry(thread, context)) work.Record(context);
    }
    work.text.Add(", %s%s\n", Describe(state), remark);
    WriteFrames(work);
}

/// Visits the ids of all threads, in the system's order. False if it does not list them.
template <class Visitor>
bool VisitThreads(Visitor visit) {
    if (!HasOwnProc()) {
        errno = ENOENT;
        return false;
    }
    const int tasks = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (tasks < 0) return false;
    alignas(dirent64) char entries[4096];
    for (long size = 0; (size = syscall(SYS_getdents64, tasks, entries, sizeof entries)) > 0;) {
        for (long at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
            at += entry->d_reclen;
            const char* const name = entry->d_name;
            pid_t thread = 0;
            std::from_chars(name, name + std::strlen(name), thread);
            if (thread != 0) visit(thread);
        }
    }
    close(tasks);
    return true;
}

bool WriteStacks(Work& work, const ThreadContext& own) {
    const long end = Now() + kForAll;
    char program[PATH_MAX];
    ReadProgram(program);
    work.text.Add("Stacks of process %d, %s\n", static_cast<int>(getpid()), program);
    {
        ThreadStops stops(kSecond);
        const auto write = [&](pid_t thread) { WriteThread(work, stops, thread, own, end - Now()); };
        if (!VisitThreads(write)) {
            const char* const reason = strerrordesc_np(errno);
            write(gettid());
            work.text.Add("\nOther threads are not known: %s\n", reason == nullptr ? "?" : reason);
        }
    }
    work.text.Add("\nModules\n");
    for (const MetModules::Module& module : work.modules)
        work.text.Add("  0x%016lX 0x%016lX %s %s\n", static_cast<unsigned long>(module.start),
                      static_cast<unsigned long>(module.end), module.id, module.path);
    return work.text.Flush();
}

void AddNames(Work& work, int file, const char* path) {
    struct stat status {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || !work.names.Find(kNames)) return;
    const ReportPiece piece{path, std::strlen(path) + 1};
    if (work.launch.Take()) work.launch.Run(work.names, &piece, 1, kSecondsForNames);
}

}  // namespace

bool WriteAllStacks(const char* path) {
    const CancellationHeldBack heldBack;
    ThreadContext own{};
    CaptureContext(&own);
    // A pipe without a reader would block this thread.
    const int file =
        open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, S_IRUSR | S_IWUSR);
    if (file < 0) return false;
    fcntl(file, F_SETFL, 0);
    UnmapThoseLeft();
    void* const pages =
        mmap(nullptr, sizeof(Work), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    bool written = false;
    if (pages != MAP_FAILED) {
        Work& work = *::new (pages) Work(file);
        written = WriteStacks(work, own);
        if (written) AddNames(work, file, path);
        Unmap(&work);
    }
    close(file);
    return written;
}

}  // namespace ZBase::os
