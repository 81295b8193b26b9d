// A crash in which a call fails: the first, then the second, and so on until none is left. The process ends
// by the signal of its crash, and leaves one dump.

#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/crash/FixedServer.h"
#include "tests/injection/CrashPlace.h"
#include "tests/injection/Injection.h"

namespace {

using test::EFailing;

const volatile char* gNeverThere = reinterpret_cast<const char*>(1);

[[gnu::noipa]] void WriteTo(volatile int* place) {
    *place = 1;
}

[[gnu::noipa]] std::size_t UseUp(const volatile char* before) {
    if (before == gNeverThere) return 0;
    volatile char room[4096];
    room[0] = before == nullptr ? 'a' : *before;
    return UseUp(room) + static_cast<std::size_t>(room[0]);
}

struct Way {
    const char* name;
    int signal;
    void (*prepare)();  // of the thread, before anything fails
    void (*crash)();
};

void Nothing() {}

const Way kWays[] = {
    {"NullPointer", SIGSEGV, Nothing, [] { WriteTo(nullptr); }},
    {"UncaughtMessage", SIGABRT, Nothing,
     [] {
         ZBase::Message message(300, 1, nullptr);
         message.SetTemplate("all is lost");
         throw message;
     }},
    {"StackOverflow", SIGSEGV, [] { ZBase::InstallCrashStack(); }, [] { UseUp(nullptr); }},
};

/// Whether a file is a minidump with its threads and what ended them.
bool IsWhole(const std::filesystem::path& path) {
    constexpr std::uint32_t kThreads = 3, kException = 6;
    std::ifstream file(path, std::ios::binary);
    const std::string octets(std::istreambuf_iterator<char>(file), {});
    if (!octets.starts_with("MDMP")) return false;
    const auto at = [&](std::size_t place) {
        std::uint32_t number = 0;
        if (place + sizeof number <= octets.size()) std::memcpy(&number, &octets[place], sizeof number);
        return number;
    };
    bool hasThreads = false;
    bool hasException = false;
    for (std::uint32_t i = 0; i != at(8); ++i) {
        hasThreads = hasThreads || at(at(12) + 12 * i) == kThreads;
        hasException = hasException || at(at(12) + 12 * i) == kException;
    }
    return hasThreads && hasException;
}

class InjectionInACrash : public testing::TestWithParam<EFailing> {
protected:
    InjectionInACrash() : mServer(test::Manner::eAnswer, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n") {
        void* const shared =
            mmap(nullptr, sizeof(test::Failure), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        mpFailure = new (shared) test::Failure;
    }
    ~InjectionInACrash() override { munmap(mpFailure, sizeof *mpFailure); }

    /// What is wrong after a crash whose call `index` fails; empty if nothing is.
    std::string Crash(const Way& way, EFailing failing, std::size_t index) {
        *mpFailure = {};
        const test::CrashPlace place(mServer.Address());
        const int reported = mServer.Requests();
        const pid_t child = fork();
        if (child == 0) Die(way, failing, index, place);
        int status = 0;
        waitpid(child, &status, 0);
        // What can't even signal itself ends as a shell tells such an end.
        const bool isShown = WIFEXITED(status) && WEXITSTATUS(status) == 128 + way.signal;
        if ((!WIFSIGNALED(status) || WTERMSIG(status) != way.signal) && !(isShown && IsForGood(failing)))
            return "the process ended with " + std::to_string(status);
        std::size_t dumps = 0;
        for (const std::string& folder : {place.Dumps(), place.Temporary()}) {
            for (const auto& file : std::filesystem::directory_iterator(folder)) {
                if (file.path().extension() != ".dmp") continue;
                ++dumps;
                if (!IsWhole(file.path()) && !MayBeCut(failing)) return "its dump is damaged";
            }
        }
        if (dumps > 1) return "it left several dumps";
        const bool isLost = dumps == 0 && mServer.Requests() == reported;
        return isLost && !IsForGood(failing) ? "its report is lost" : "";
    }

    test::Failure* mpFailure = nullptr;  // of the child's

private:
    static bool IsForGood(EFailing failing) { return failing == EFailing::eSystemForGood; }

    // A file that can't grow keeps what it has.
    bool MayBeCut(EFailing failing) const {
        return IsForGood(failing) ||
               (mpFailure->name != nullptr && std::strcmp(mpFailure->name, "ftruncate") == 0);
    }

    // So that a report of one that is used up is small, and the server not asked first what it takes.
    static void UseSmallStacks() {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, std::size_t{256} * 1024);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

    [[noreturn]] void Die(const Way& way, EFailing failing, std::size_t index,
                          const test::CrashPlace& place) {
        alarm(60);
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        setenv("TMPDIR", place.Temporary().c_str(), 1);
        if (!ZBase::InstallCrashHandler()) _exit(1);
        // As a server has them: threads that wait, and something to tell.
        ZBase::SetCrashAttr("a crash key with a long name", "a value", true);
        ZBase::AddCrashNote("a note for the case of a crash");
        std::thread([] { pause(); }).detach();
        UseSmallStacks();
        std::thread([&] {
            way.prepare();
            test::PrepareFailure(failing, index, mpFailure);
            const test::Armed armed;
            way.crash();
        }).join();
        _exit(2);
    }

    test::FixedServer mServer;
};

TEST_P(InjectionInACrash, EndsBySignalAndItsReportIsDeliveredOrKept) {
    const EFailing failing = GetParam();
    std::size_t failures = 0;
    for (const Way& way : kWays) {
        for (std::size_t index = 0;; ++index, ++failures) {
            EXPECT_EQ(Crash(way, failing, index), "")
                << way.name << ", " << test::NameOf(failing) << " " << index << ": " << Describe(*mpFailure);
            if (mpFailure->name == nullptr) break;
            ASSERT_LT(index, 20'000u) << way.name;
        }
    }
    RecordProperty("failures", static_cast<int>(failures));
}

// No call is interrupted: all signals are held back.
constexpr EFailing kFailing[] = {EFailing::eHeap, EFailing::eSystem, EFailing::eShort, EFailing::eHeapForGood,
                                 EFailing::eSystemForGood};

// The machine itself.

using InjectionInACrashMachine = InjectionInACrash;

TEST_P(InjectionInACrashMachine, SeesAProcessThatEndsOtherwise) {
    const Way way{"", SIGSEGV, Nothing, [] { _exit(0); }};
    EXPECT_EQ(Crash(way, GetParam(), 0), "the process ended with 0");
}

TEST_P(InjectionInACrashMachine, SeesAReportThatIsLost) {
    const Way way{"", SIGKILL, Nothing, [] { raise(SIGKILL); }};
    EXPECT_EQ(Crash(way, GetParam(), 0), "its report is lost");
}

INSTANTIATE_TEST_SUITE_P(Failures, InjectionInACrashMachine, testing::Values(EFailing::eSystem));

INSTANTIATE_TEST_SUITE_P(Failures, InjectionInACrash, testing::ValuesIn(kFailing),
                         [](const testing::TestParamInfo<EFailing>& information) {
                             std::string name = test::NameOf(information.param);
                             std::erase(name, ' ');
                             return name;
                         });

}  // namespace
