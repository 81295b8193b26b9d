// What the headers say may be done on any thread, each with each, and beside forks, signals and components
// that come and go. It is for ThreadSanitizer, and for a crash or a thread that hangs without it.

#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TemporaryFile.h"

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;

/// What the operations of one run share.
struct World {
    ZBase::MemoryCeiling ceiling{std::size_t{1} << 30};
    ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(std::size_t{1} << 28);
    ZBase::Buffer* buffer = ZBase::CreateBufferThreadSafe(1, 1, budget.Get(), 0, false);
    ZBase::Buffer* lockable = ZBase::CreateBufferThreadSafe(1, 1, nullptr, 0, true);
    ZBase::BufferResource resource{buffer};
    ZBase::CallStackLogger logger;
    test::TemporaryFile report;
    ZBase::RefCountCallStackTracer* tracer = ZBase::CreateRefCountCallStackTracer("label"_w, report.Path());
    ZBase::ModuleInfo modules;
    ZBase::Timer timer;
    std::string folder = "/tmp/zbase-together-" + std::to_string(getpid());
    std::atomic<int> cleaned = 0;
    std::atomic<int> registered = 0;

    World() { fs::create_directories(folder); }
    ~World() {
        lockable->Delete();
        buffer->Delete();
        EXPECT_EQ(cleaned, registered);
        tracer->Delete();
        fs::remove_all(folder);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;
};

/// One operation, and where it is said that any thread may do it at any time.
struct Row {
    const char* header;    // empty: the world around the library does it
    const char* sentence;  // or the beginning of it
    void (*run)(World& world, int number);
};

void Register(World& world, ZBase::Buffer* buffer) {
    try {
        buffer->AddCleanup([](void* count) { ++*static_cast<std::atomic<int>*>(count); }, &world.cleaned);
        ++world.registered;
    } catch (const ZBase::BufferException&) {  // it was locked
    }
}

void UseLockable(World& world, int number) {
    if (number % 16 == 15) world.lockable->Lock();
    try {
        world.lockable->Allocate(100);
    } catch (const ZBase::BufferException&) {
    }
    Register(world, world.lockable);
}

void Fork(World&, int number) {
    if (number % 8 != 0) return;
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        ZBase::AddCrashNote("in the child");
        ZBase::Buffer* const buffer = ZBase::CreateBufferThreadSafe(1, 1, nullptr, 0, true);
        buffer->Allocate(10'000);
        buffer->Delete();
        _exit(ZBase::IsFeatureEnabled("Some/Feature"_w) ? 17 : 18);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 17 || WEXITSTATUS(status) == 18)) << status;
}

void Signal(World&, int) {
    static const bool sIsSet = [] {
        struct sigaction action {};
        action.sa_handler = [](int) { ZBase::AddCrashNote("in a handler of signals"); };
        action.sa_flags = SA_RESTART;
        return sigaction(SIGUSR1, &action, nullptr) == 0;
    }();
    EXPECT_TRUE(sIsSet);
    kill(getpid(), SIGUSR1);
}

[[maybe_unused]] void LoadComponent(World&, int) {
    const ZBase::ReturnWString path = ZBase::UTF8ToWideChar(ZBASE_COMPONENTS_DIR "/Component_64.so", false);
    EXPECT_NE(ZBase::LoadSharedLibrary(path.c_str())->GetFunctionAddress("AddOne"_w), nullptr);
}

const Row kRows[] = {
    {"switches/FeatureFlagMgr.h", "Every member may be called on any thread.",
     [](World&, int number) {
         ZBase::SetFeatureEnabled("Some/Feature"_w, number % 2 == 0);
         ZBase::IsFeatureEnabled("Some/Feature"_w);
     }},
    {"memory/CreateBuffer.h", "A buffer for any number of threads at once.",
     [](World& world, int number) {
         world.buffer->Allocate(static_cast<std::size_t>(number % 64));
         Register(world, world.buffer);
     }},
    {"memory/Buffer.h", "Other threads may use a lock-free buffer meanwhile", UseLockable},
    {"memory/Buffer.h", "whose request to the governors is under way, in another thread",
     [](World&, int) {
         ZBase::Buffer* const own = ZBase::CreateBufferThreadSafe(1, 1, nullptr, 0, false);
         std::thread other([own] { own->Allocate(100'000); });
         own->DetachFromGovernors();
         other.join();
         own->Delete();
     }},
    {"memory/MemoryBudget.h", "Any number of threads may use it",
     [](World& world, int) {
         const ZBase::SmartPtrI<ZBase::MemoryBudget> held(world.budget);
         if (held->Request(10) == 0) held->Settle(10);
     }},
    {"memory/MemoryCeiling.h", "Any thread may use it.",
     [](World& world, int) {
         ZBase::Buffer* const own = ZBase::CreateBufferThreadSafe(1, 1, nullptr, 0, true);
         EXPECT_GT(world.ceiling.GetHeld(), 0u);
         own->Delete();
     }},
    {"memory/BufferResource.h", "Threads may share it as they may share the buffer.",
     [](World& world, int) { EXPECT_NE(world.resource.allocate(24, 8), nullptr); }},
    {"memory/BufferFigures.h", "May be called on any thread.",
     [](World&, int) { ZBase::GetBufferFigures(); }},
    {"memory/BufferGrowth.h", "The last call counts; it may be made on any thread.",
     [](World& world, int number) {
         ZBase::LimitGrowth(world.buffer, static_cast<std::size_t>(number) << 10);
     }},
    {"text/MultibyteConversions.h", "The two multibyte conversions may run on any threads at once.",
     [](World&, int) {
         ZBase::WideCharToMultiByte("a text"_w, true);
         ZBase::MultiByteToWideChar("a text", true);
     }},
    {"diagnostics/CallStackLogger.h", "Any thread may call it.",
     [](World& world, int number) {
         world.logger.AppendCallStack(1, 0);
         if (number % 8 == 0) world.logger.RemoveDuplicates();
     }},
    {"diagnostics/RefCountCallStackTracer.h", "Any thread may call it.",
     [](World& world, int number) {
         if (number % 8 != 0) return;
         world.tracer->RecordRefCount(&number, 1);
         world.tracer->RecordRefCount(&number, 0);
     }},
    {"diagnostics/ModuleInfo.h", "Any thread may call it.",
     [](World& world, int) { world.modules.Initialize(); }},
    {"diagnostics/CallStack.h", "One capture runs at a time in the process.",
     [](World&, int number) {
         if (number % 8 != 0) return;
         ZBase::CallStack* const stack = ZBase::CreateCallStack(nullptr);
         EXPECT_NE(stack->ToString(), nullptr);
         stack->Delete();
     }},
    {"diagnostics/AllStacks.h", "Any thread may call it, whatever locks the others hold",
     [](World&, int number) {
         if (number == 0) {
             EXPECT_TRUE(ZBase::DumpAllStacks("/dev/null"));
         }
     }},
    {"messages/TerminateHandler.h", "May be called at any time from any thread.",
     [](World&, int) { ZBase::InstallTerminateHandler(); }},
    {"platform/Timer.h", "It runs from its construction, and any thread may read it.",
     [](World& world, int) { world.timer.GetAgeInMicroseconds(); }},
    {"crash/CrashHandler.h", "Any thread may call, beside a crash too",
     [](World&, int number) { ZBase::SetCrashAttr(number % 2 == 0 ? "even" : "odd", "value", true); }},
    {"crash/CrashNotes.h", "any thread may call at any time, in a signal handler",
     [](World&, int) { ZBase::AddCrashNote("a line"); }},
    {"crash/CrashStore.h", "any number of threads and processes may work on one directory.",
     [](World& world, int number) {
         const std::string dump =
             world.folder + "/01234567-89ab-cdef-0123-45678901234" + std::to_string(number % 4);
         std::ofstream(dump + ".dmp") << "a dump";
         ZBase::ClaimedDump claimed;
         claimed.Claim(dump + ".dmp");
         ZBase::CrashStore(world.folder, {{"max_dumps"_w, "2"_w}}).Trim();
     }},
    {"", "fork", Fork},
    {"", "signals", Signal},
// The loader is not instrumented, so what its locks order looks like a race.
#if !defined(__SANITIZE_THREAD__)
    {"", "components", LoadComponent},
#endif
};

/// Runs two operations on as many threads, in turn, which all begin at once.
void RunTogether(const Row& one, const Row& other, int threads, int rounds) {
    World world;
    std::barrier start(threads);
    std::vector<std::thread> all;
    for (int i = 0; i != threads; ++i) {
        all.emplace_back([&, i] {
            start.arrive_and_wait();
            for (int round = 0; round != rounds; ++round) (i % 2 == 0 ? one : other).run(world, round);
        });
    }
    for (std::thread& thread : all) thread.join();
}

/// More with ZBASE_SOAK.
int Times() {
    const char* const soak = std::getenv("ZBASE_SOAK");
    return soak == nullptr ? 1 : std::max(1, std::atoi(soak));
}

class Together : public testing::TestWithParam<std::size_t> {};

// From two threads to eight, so that the pairs of an operation take turns with them.
TEST_P(Together, WithEachOther) {
    const Row& one = kRows[GetParam()];
    ZBase::NotifyFeatureFlagMgrInitialized();
    for (int times = Times(); times != 0; --times) {
        for (std::size_t i = GetParam(); i != std::size(kRows); ++i) {
            SCOPED_TRACE(std::string(one.header) + " and " + kRows[i].header + kRows[i].sentence);
            RunTogether(one, kRows[i], 2 + static_cast<int>(i % 4) * 2, test::kHasThreadSanitizer ? 16 : 32);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, Together, testing::Range(std::size_t{0}, std::size(kRows)));

// The headers.

/// A header's comments as sentences on one line.
std::string Comments(const fs::path& path) {
    std::ifstream file(path);
    std::string text;
    for (std::string line; std::getline(file, line);) {
        const std::size_t start = line.find("//");
        if (start == std::string::npos) continue;
        text += line.substr(line.find_first_not_of("/ ", start) == std::string::npos
                                ? line.size()
                                : line.find_first_not_of("/ ", start));
        text += ' ';
    }
    return text;
}

/// What a header says of threads that may come at any time, with `count` characters around it.
std::vector<std::string> Promises(const std::string& comments) {
    constexpr std::string_view phrases[] = {
        "Any thread",        "any thread",        "Any number of threads", "any number of threads",
        "Threads may share", "threads may share", "Threads may use",       "threads may use"};
    std::vector<std::string> promises;
    for (std::size_t at = 0;;) {
        std::size_t found = std::string::npos;
        for (const std::string_view phrase : phrases) found = std::min(found, comments.find(phrase, at));
        if (found == std::string::npos) return promises;
        const std::size_t start = std::max(at, comments.find_last_of(".;:", found) + 1);  // 0 without any
        const std::size_t end = std::min(comments.find_first_of(".;", found), comments.size());
        promises.push_back(comments.substr(start, end - start));
        at = end;
    }
}

TEST(TogetherTable, QuotesTheHeaders) {
    for (const Row& row : kRows) {
        if (*row.header == 0) continue;
        EXPECT_NE(Comments(fs::path(ZBASE_SOURCE_DIR "/Base") / row.header).find(row.sentence),
                  std::string::npos)
            << row.header << " does not say: " << row.sentence;
    }
}

/// The promises of headers that no row quotes.
std::vector<std::string> Untested(const std::vector<std::pair<std::string, std::string>>& headers) {
    std::vector<std::string> untested;
    for (const auto& [header, comments] : headers) {
        for (std::string promise : Promises(comments)) {
            promise.erase(0, promise.find_first_not_of(' '));
            const bool isTested = std::any_of(std::begin(kRows), std::end(kRows), [&](const Row& row) {
                return header == row.header && (promise.find(row.sentence) != std::string::npos ||
                                                std::string(row.sentence).find(promise) != std::string::npos);
            });
            if (!isTested) untested.push_back(header + ": " + promise);
        }
    }
    return untested;
}

TEST(TogetherTable, HasEachPromiseOfTheHeaders) {
    std::vector<std::pair<std::string, std::string>> headers;
    const fs::path base = ZBASE_SOURCE_DIR "/Base";
    for (const auto& entry : fs::recursive_directory_iterator(base)) {
        const std::string name = fs::relative(entry.path(), base);
        if (entry.path().extension() != ".h" || name.find("/os/") != std::string::npos ||
            name.find("detail/") != std::string::npos)
            continue;
        headers.emplace_back(name, Comments(entry.path()));
    }
    ASSERT_GT(headers.size(), 60u);
    EXPECT_EQ(Untested(headers), std::vector<std::string>{});
}

TEST(TogetherMachine, SeesAPromiseWithoutATest) {
    EXPECT_EQ(Untested({{"memory/Nothing.h", "It does this. Any thread may call it at once. And that."}}),
              std::vector<std::string>{"memory/Nothing.h: Any thread may call it at once"});
}

TEST(TogetherMachine, SeesTwoAtOnce) {
    // Each waits for the other: one alone would never come to its end.
    static std::atomic<int> sMet = 0;
    sMet = 0;
    const Row meets = {"", "", [](World&, int) {
                           ++sMet;
                           while (sMet < 2) std::this_thread::yield();
                       }};
    RunTogether(meets, meets, 2, 1);
    EXPECT_EQ(sMet, 2);
}

// Two thousand additions with a gap between two locks, on one processor.
TEST(TogetherMachine, WithYieldingThreadsSeesWhatComesInBetween) {
    if (test::kIsSanitized && !test::kHasThreadSanitizer)
        GTEST_SKIP() << "AddressSanitizer lets no module come before itself";
    const std::string module = std::string(ZBASE_MODULES_DIR) + "/libYieldingProcess.so";
    ASSERT_TRUE(fs::exists(module));
    const test::ChildResult child =
        test::RunChild({test::ChildProgram("LostUpdateProbe")}, {"LD_PRELOAD=" + module, "ZBASE_YIELD=16"});
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_GT(std::atoi(child.output.c_str()), 10) << child.output;
}

}  // namespace
