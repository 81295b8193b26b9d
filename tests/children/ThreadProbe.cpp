// ThreadProbe WHAT...: captures the stacks of threads in awkward states, and prints the results. The library
// is opened at run time.

#include <Base/diagnostics/CallStack.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

namespace {

using Create = ZBase::CallStack* (*)(void*);

void* gLibrary;
Create gCreate;

void Open(const char* path) {
    gLibrary = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (gLibrary == nullptr) std::puts(dlerror());
    gCreate = reinterpret_cast<Create>(dlsym(gLibrary, "_ZN5ZBase15CreateCallStackEPv"));
}

unsigned int CountLines(void* thread) {
    ZBase::CallStack* stack = gCreate(thread);
    const unsigned int count = stack->GetLineCount();
    stack->Delete();
    return count;
}

void* Handle(std::thread& thread) {
    return reinterpret_cast<void*>(thread.native_handle());
}

struct Stages {
    std::atomic<int> reached{0};

    void Reach(int stage) { reached = stage; }
    void Await(int stage) const {
        while (reached < stage) usleep(1000);
    }
};

// A pending signal of the thread arrives only after the library was closed.
void CloseWhileASignalIsOnItsWay() {
    Stages stages;
    std::thread thread([&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        stages.Reach(1);
        stages.Await(2);
        pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
    });
    stages.Await(1);
    std::printf("%u lines of a thread that blocks all signals\n", CountLines(Handle(thread)));
    dlclose(gLibrary);
    stages.Reach(2);
    thread.join();
    std::puts("the thread is unharmed");
}

// A thread that flushes all streams holds their locks while it waits for the reader of one.
void CaptureWhileStreamsAreLocked() {
    int ends[2];
    if (pipe(ends) != 0) return;
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    std::FILE* stream = fdopen(ends[1], "w");
    static char room[1 << 16];
    setvbuf(stream, room, _IOFBF, sizeof room);
    for (int i = 0; i != 20000; ++i) std::fputc('x', stream);
    std::thread thread([] { std::fflush(nullptr); });
    pollfd full{ends[1], POLLOUT, 0};
    while (poll(&full, 1, 0) == 1) usleep(1000);
    usleep(50'000);
    const unsigned int lines = CountLines(Handle(thread));
    for (std::size_t left = 20000; left != 0;) {
        const ssize_t count = read(ends[0], room, sizeof room);
        if (count <= 0) break;
        left -= static_cast<std::size_t>(count);
    }
    thread.join();
    std::printf("%d\n", lines != 0);
}

void Nothing(int) {}

// Deep enough to have lines.
[[gnu::noinline]] void Spin(int depth, const Stages& stages) {
    if (depth != 0) Spin(depth - 1, stages);
    while (stages.reached == 0) {
    }
}

// A handler that the host installs later gets the signal.
void CaptureAfterTheSignalWasTaken() {
    Stages stages;
    std::thread thread([&] { Spin(9, stages); });
    usleep(10'000);
    CountLines(Handle(thread));
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number) {
        struct sigaction present {};
        sigaction(number, nullptr, &present);
        if (present.sa_handler != SIG_DFL) std::signal(number, Nothing);
    }
    struct sigaction last {};
    ZBase::CallStack* stack = gCreate(Handle(thread));
    const std::string text = stack->GetLineCount() == 0 ? "none" : "some";
    stack->Delete();
    sigaction(SIGRTMAX - 1, nullptr, &last);
    std::printf("%s, kept %d\n", text.c_str(), last.sa_handler == Nothing);
    stages.Reach(1);
    thread.join();
}

// Symbols that were read are kept when a module is unloaded and no file can be opened.
void CaptureWithoutFiles() {
    const auto isNamed = [] {
        ZBase::CallStack* stack = gCreate(nullptr);
        const unsigned short* text = stack->ToString();
        std::string narrow;
        for (; *text != 0; ++text) narrow += static_cast<char>(*text);
        stack->Delete();
        return narrow.find("Sym:[main]") != std::string::npos;
    };
    std::printf("%d", isNamed());
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    void* module = dlopen("libm.so.6", RTLD_NOW);
    void* other = dlopen("libresolv.so.2", RTLD_NOW);
    const rlimit none{0, files.rlim_max};
    if (other != nullptr) dlclose(other);
    setrlimit(RLIMIT_NOFILE, &none);
    std::printf("%d", isNamed());
    setrlimit(RLIMIT_NOFILE, &files);
    std::printf("%d\n", isNamed());
    if (module != nullptr) dlclose(module);
}

template <class Operation>
[[gnu::noinline]] void Repeat(int depth, std::atomic<bool>& stop, const Operation& operation) {
    if (depth != 0) Repeat(depth - 1, stop, operation);
    while (!stop) operation();
}

// A thread that is stopped with a lock that the capture needs would deadlock it.
template <class Operation>
void CaptureInTheMiddleOf(const Operation& operation, unsigned int rounds) {
    std::atomic<bool> stop{false};
    std::thread thread([&] { Repeat(9, stop, operation); });
    unsigned int lines = 0;
    for (unsigned int round = 0; round != rounds; ++round) lines += CountLines(Handle(thread));
    stop = true;
    thread.join();
    std::printf("%d\n", lines > rounds);
}

void CaptureInTheHeap() {
    mallopt(M_ARENA_MAX, 1);  // all threads have one heap with one lock
    CaptureInTheMiddleOf(
        [] {
            void* volatile blocks[8];
            for (auto& block : blocks) block = std::malloc(5000);
            for (auto& block : blocks) std::free(block);
        },
        100);
}

void CaptureInTheLoader() {
    CaptureInTheMiddleOf(
        [] {
            if (void* module = dlopen("libresolv.so.2", RTLD_NOW); module != nullptr) dlclose(module);
            dl_iterate_phdr([](dl_phdr_info*, std::size_t, void*) { return 0; }, nullptr);
        },
        20);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    alarm(60);
    Open(argv[1]);
    const std::string what = argv[2];
    if (what == "close") CloseWhileASignalIsOnItsWay();
    if (what == "streams") CaptureWhileStreamsAreLocked();
    if (what == "taken") CaptureAfterTheSignalWasTaken();
    if (what == "heap") CaptureInTheHeap();
    if (what == "loader") CaptureInTheLoader();
    if (what == "files") CaptureWithoutFiles();
}
