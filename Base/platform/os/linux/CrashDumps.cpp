// The path of a crash. The thread that crashed is in a signal handler; any lock may be held, the heap may be
// broken, its stack may be used up. So all that is needed is set aside while the handler is made:
//
//  - an alternate stack for the thread, with a guard page;
//  - address space and descriptors, which are let go first of all, since the process may have none left;
//  - the directory's name. The name of a file is made in the crash, without the heap: a name that was made
//    earlier would be taken by an earlier dump, or by the child of a fork.
//
// Breakpad then clones a process that looks at this one and writes the dump. There are two of its handlers: a
// crash may come while another thread writes a dump on demand, and must find nothing of that half done.

#include <Base/platform/os/CrashDumps.h>
#include <Base/platform/os/linux/FaultSignals.h>
#include <Base/platform/os/linux/NativeText.h>

#include <client/linux/handler/exception_handler.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

namespace ZBase::os {

namespace {

using google_breakpad::ExceptionHandler;
using google_breakpad::MinidumpDescriptor;

constexpr std::size_t kNameLength = sizeof "/01234567-0123-0123-0123-0123456789ab.dmp" - 1;
constexpr std::size_t kCrashStackSize = 65536;
constexpr std::size_t kSmallestCrashStack = 16384;  // what Breakpad takes as it is
constexpr std::size_t kReservedMemory = 32 << 20;   // a dump copies each stack, up to 16 MiB
constexpr int kReservedDescriptors = 8;

std::atomic<bool> sCrashTaken = false;

/// The alternate signal stack of one thread.
class CrashStack {
public:
    ~CrashStack() { Remove(); }

    bool Install() {
        stack_t present{};
        if (sigaltstack(nullptr, &present) != 0) return false;
        if ((present.ss_flags & SS_DISABLE) == 0 && present.ss_size >= kSmallestCrashStack) return true;
        const auto guard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t size = guard + kCrashStackSize + getauxval(AT_MINSIGSTKSZ) / guard * guard;
        void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) return false;
        stack_t mine{};
        mine.ss_sp = static_cast<char*>(pages) + guard;
        mine.ss_size = size - guard;
        if (mprotect(pages, guard, PROT_NONE) != 0 || sigaltstack(&mine, nullptr) != 0) {
            munmap(pages, size);
            return false;
        }
        mStack = mine;
        mpPages = pages;
        return true;
    }

private:
    // From another thread than the one that has it, it can't be taken away.
    void Remove() {
        stack_t present{};
        if (mpPages == nullptr || sigaltstack(nullptr, &present) != 0 || present.ss_sp != mStack.ss_sp)
            return;
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        if (sigaltstack(&none, nullptr) != 0) return;
        const auto guard =
            static_cast<std::size_t>(static_cast<char*>(mStack.ss_sp) - static_cast<char*>(mpPages));
        munmap(mpPages, guard + mStack.ss_size);
    }

    stack_t mStack{};
    void* mpPages = nullptr;  // owned
};

/// Address space and descriptors for a process that has none left.
class Reserve {
public:
    void Take() {
        if (mpMemory != nullptr) return;
        void* memory =
            mmap(nullptr, kReservedMemory, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory != MAP_FAILED) mpMemory = memory;
        for (int& descriptor : mDescriptors) descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        struct stat file {};
        if (mDescriptors[0] >= 0 && fstat(mDescriptors[0], &file) == 0) mDevice = file.st_rdev;
    }

    // Runs on the crashed thread. No heap, no lock.
    void LetGo() {
        if (mpMemory == nullptr) return;
        munmap(mpMemory, kReservedMemory);
        mpMemory = nullptr;
        for (const int descriptor : mDescriptors) {
            struct stat file {};  // a server that closes all it has may use the number for something else
            if (descriptor >= 0 && fstat(descriptor, &file) == 0 && file.st_rdev == mDevice)
                close(descriptor);
        }
    }

private:
    void* mpMemory = nullptr;  // owned
    int mDescriptors[kReservedDescriptors] = {};
    dev_t mDevice = 0;
};

Reserve sReserve;

// "/" and a random GUID and ".dmp". Runs on the crashed thread. No heap, no lock.
bool MakeName(char* name) {
    unsigned char random[16];
    if (getrandom(random, sizeof random, GRND_NONBLOCK) != sizeof random) return false;
    random[6] = static_cast<unsigned char>(0x40 | (random[6] & 0x0F));
    random[8] = static_cast<unsigned char>(0x80 | (random[8] & 0x3F));
    *name++ = '/';
    for (std::size_t i = 0; i != sizeof random; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *name++ = '-';
        *name++ = "0123456789abcdef"[random[i] >> 4];
        *name++ = "0123456789abcdef"[random[i] & 0x0F];
    }
    std::memcpy(name, ".dmp", sizeof ".dmp");
    return true;
}

/// One of Breakpad's handlers, and the file that it writes to.
class Dumper {
public:
    Dumper(const std::string& directory, DumpCallback callback, bool forCrashes)
        : mCallback(callback),
          mForCrashes(forCrashes),
          mDirectoryLength(directory.size()),
          mHandler(MinidumpDescriptor(STDIN_FILENO), Begin, End, this, forCrashes, -1) {
        std::memcpy(mPath, directory.c_str(), directory.size());
    }

    ExceptionHandler& Handler() { return mHandler; }

    // Runs on the crashed thread. No heap, no lock.
    bool OpenFile() {
        if (!MakeName(mPath + mDirectoryLength)) return false;
        mFile = open(mPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (mFile < 0) return false;
        MinidumpDescriptor descriptor(mFile);
        descriptor.set_sanitize_stacks(false);
        mHandler.set_minidump_descriptor(descriptor);
        return true;
    }

    // Runs on the crashed thread. No heap, no lock.
    void CloseFile() {
        if (mFile >= 0) close(mFile);
        mFile = -1;
    }

private:
    // Breakpad asks whether it shall dump a crash. Runs on the crashed thread. No heap; Breakpad's lock is
    // held.
    static bool Begin(void* dumper) {
        auto* const self = static_cast<Dumper*>(dumper);
        if (!self->mForCrashes || sCrashTaken.exchange(true)) return false;
        sReserve.LetGo();
        return self->OpenFile();
    }

    // The dump is written. Runs on the crashed thread, or on the one that wants a dump. No heap.
    static bool End(const MinidumpDescriptor&, void* dumper, bool succeeded) {
        auto* const self = static_cast<Dumper*>(dumper);
        self->CloseFile();
        const bool endsHere = self->mCallback(self->mPath, succeeded);
        // No core of a process whose crash has been dealt with, not even into a pipe.
        if (self->mForCrashes && endsHere) prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
        return endsHere;
    }

    DumpCallback mCallback;
    bool mForCrashes;
    std::size_t mDirectoryLength;
    int mFile = -1;
    char mPath[PATH_MAX];
    ExceptionHandler mHandler;
};

// The absolute form of a directory; empty if it is too long or if there is none.
std::string Absolute(const std::string& directory) {
    std::string absolute = directory;
    if (absolute.empty() || absolute[0] != '/') {
        char* present = getcwd(nullptr, 0);
        if (present == nullptr) return "";
        absolute = std::string(present) + "/" + directory;
        std::free(present);
    }
    return absolute.size() + kNameLength < PATH_MAX ? absolute : "";
}

}  // namespace

class DumpHandler {
public:
    DumpHandler(const std::string& directory, DumpCallback callback)
        : mCrashes(directory, callback, true), mDemands(directory, callback, false) {}

    CrashStack mCrashStack;
    Dumper mCrashes;
    Dumper mDemands;
    DumpHandler* mpOlder = nullptr;  // owned
};

static DumpHandler* spNewest = nullptr;

DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpCallback callback) {
    const std::string absolute = Absolute(ToNative(directory));
    if (absolute.empty()) return nullptr;
    auto* handler = new (std::nothrow) DumpHandler(absolute, callback);
    if (handler == nullptr) return nullptr;
    handler->mCrashStack.Install();
    sReserve.Take();
    google_breakpad::SetFirstChanceExceptionHandler(TranslateFault);
    handler->mpOlder = spNewest;
    spNewest = handler;
    return handler;
}

void DestroyDumpHandlers(DumpHandler* newest) {
    google_breakpad::SetFirstChanceExceptionHandler(nullptr);
    while (newest != nullptr) {
        DumpHandler* const older = newest->mpOlder;
        delete newest;  // waits for a crash that is being reported
        newest = older;
    }
    spNewest = nullptr;
    sReserve.LetGo();
    // The process is about to end by the signal of its crash: this exit must not come first.
    for (int i = 0; i != 200 && sCrashTaken; ++i) {
        const timespec tenMilliseconds{0, 10'000'000};
        nanosleep(&tenMilliseconds, nullptr);
    }
}

bool WriteDump(DumpHandler* handler) {
    if (!handler->mDemands.OpenFile()) return false;
    const int dumpable = prctl(PR_GET_DUMPABLE, 0, 0, 0, 0);
    const bool written = handler->mDemands.Handler().WriteMinidump();
    handler->mDemands.CloseFile();  // is open still if nothing was begun
    if (dumpable == 0) prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    return written;
}

void AddDumpMemory(DumpHandler* handler, void* start, std::size_t size) {
    for (; handler != nullptr; handler = handler->mpOlder) {
        handler->mCrashes.Handler().RegisterAppMemory(start, size);
        handler->mDemands.Handler().RegisterAppMemory(start, size);
    }
}

void DropDumpMemory(DumpHandler* handler, void* start) {
    for (; handler != nullptr; handler = handler->mpOlder) {
        handler->mCrashes.Handler().UnregisterAppMemory(start);
        handler->mDemands.Handler().UnregisterAppMemory(start);
    }
}

bool InstallCrashStack() {
    static thread_local CrashStack tStack;
    return tStack.Install();
}

void DeleteDump(const char* path) {
    unlink(path);
}

}  // namespace ZBase::os
