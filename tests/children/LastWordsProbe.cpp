// LastWordsProbe KIND [KEY VALUE]...: sets crash keys, installs the crash handler and ends itself with a
// reason, or leaves notes and crashes. The configuration comes from the environment, as in any process.

#include <Base/ZBase.h>

#undef NDEBUG
#include <assert.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <functional>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

void* volatile gNull = nullptr;

[[gnu::noipa]] void WriteToNull() {
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

// While it faults the heap is locked.
std::atomic<bool> gHeapFaults = false;
std::atomic<bool> gHeapIsLocked = false;

void ThrowMessage() {
    ZBase::Message message(ZBase::MESSAGE_DOMAIN_SERVER, 103, "%1 is not text.");
    message << "names.txt";
    message.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, 104, "Nothing could be loaded.");
    throw message;
}

void ThrowNested() {
    try {
        throw std::out_of_range("the inner one");
    } catch (...) {
        std::throw_with_nested(std::runtime_error("the outer one"));
    }
}

[[gnu::noipa]] void TerminateChildOfVfork() {
    const pid_t child = vfork();
    if (child == 0) std::terminate();
    waitpid(child, nullptr, 0);
}

// More of them than there is room for words at one time.
void ThrowAfterVforks() {
    for (int i = 0; i != 5; ++i) TerminateChildOfVfork();
    ThrowNested();
}

void ThrowDeep(int levels) {
    try {
        if (levels == 0) throw std::runtime_error("level 0");
        ThrowDeep(levels - 1);
    } catch (const std::runtime_error&) {
        if (levels == 0) throw;
        std::throw_with_nested(std::runtime_error("level " + std::to_string(levels)));
    }
}

// There is a current exception, but its text must not be read where that needs the heap.
void TerminateInAllocator() {
    signal(SIGSEGV, [](int) { std::terminate(); });
    try {
        ThrowMessage();
    } catch (const ZBase::Message&) {
        gHeapFaults = true;
        void* volatile block = std::malloc(1);
        std::free(block);
    }
}

// `std::bad_alloc` is thrown by the operator itself, which holds no lock.
void ThrowForWantOfMemory() {
    volatile std::size_t size = std::size_t{1} << 62;
    asm volatile("" : : "r"(::operator new(size)));
}

// An earlier handler of the host runs after ours.
void TerminateHost() {
    static constexpr char kText[] = "the host's own\n";
    if (write(STDOUT_FILENO, kText, sizeof kText - 1) > 0) std::abort();
}

void FreeTwice() {
    void* volatile block = std::malloc(100'000);
    void* volatile again = block;
    void* volatile behind = std::malloc(100'000);
    asm volatile("" : : "r"(behind));
    std::free(block);
    std::free(again);
}

std::string Repeated(const char* letter, int times) {
    std::string text;
    for (int i = 0; i != times; ++i) text += letter;
    return text;
}

void AddLongNotes() {
    ZBase::AddCrashNote(Repeated("a", 4096).c_str());
    ZBase::AddCrashNote(Repeated("b", 4097).c_str());
    ZBase::AddCrashNote(("c" + Repeated("\xC3\xA9", 3000)).c_str());
    ZBase::AddCrashNote(("d" + Repeated("\xE2\x82\xAC", 2000)).c_str());
    ZBase::AddCrashNote(("ee" + Repeated("\xF0\x9F\x98\x80", 1500)).c_str());
    raise(SIGSEGV);
}

void AddNotes() {
    for (int i = 0; i != 10'000; ++i) ZBase::AddCrashNote(("note " + std::to_string(i)).c_str());
    ZBase::AddCrashNote("");
    ZBase::AddCrashNote("one line\nand another, \x1B[31min red\n");
    WriteToNull();
}

// Several threads and a signal handler write while the process crashes.
void CrashBesideNotes() {
    signal(SIGUSR1, [](int) { ZBase::AddCrashNote("from a handler, from a handler, from a handler"); });
    static std::atomic<int> sNotes = 0;
    for (int i = 0; i != 4; ++i) {
        std::thread([i] {
            const std::string text(static_cast<std::size_t>(20 + 300 * i), static_cast<char>('a' + i));
            for (;; ++sNotes) ZBase::AddCrashNote(text.c_str());
        }).detach();
    }
    while (sNotes < 100'000) kill(getpid(), SIGUSR1);
    WriteToNull();
}

int Run(const std::string& kind) {
    const std::map<std::string, std::function<void()>> kinds = {
        {"message", ThrowMessage},
        {"nested", ThrowNested},
        {"deep", [] { ThrowDeep(200); }},
        {"number", [] { throw 7; }},
        {"text", [] { throw "a text"; }},
        {"no-memory", ThrowForWantOfMemory},
        {"long", [] { throw std::runtime_error(std::string(1'000'000, 'x')); }},
        {"thread", [] { std::thread(ThrowNested).join(); }},
        {"terminate", [] { std::terminate(); }},
        {"after-vforks", ThrowAfterVforks},
        {"in-allocator", TerminateInAllocator},
        {"assert", [] { __assert_fail("all is well", "Somewhere.cpp", 7, "Check"); }},
        {"free-twice", FreeTwice},
        {"demand", [] { ZBase::CreateDump(); }},
        {"notes", AddNotes},
        {"beside-notes", CrashBesideNotes},
        {"long-notes", AddLongNotes},
    };
    kinds.at(kind)();
    return 0;
}

}  // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(std::size_t size);

extern "C" void* malloc(std::size_t size) {
    while (gHeapIsLocked) usleep(1000);
    if (gHeapFaults) {
        gHeapIsLocked = true;
        WriteToNull();
    }
    return __libc_malloc(size);
}
#endif

int main(int argc, char** argv) {
    if (std::getenv("PROBE_HOST_HANDLER") != nullptr) std::set_terminate(TerminateHost);
    for (int i = 2; i + 1 < argc; i += 2) ZBase::SetCrashAttr(argv[i], argv[i + 1], true);
    if (!ZBase::InstallCrashHandler()) return 96;
    return Run(argv[1]);
}
