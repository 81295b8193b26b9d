#include <Base/diagnostics/CallStack.h>
#include <Base/frame/Threads.h>
#include <TestPlaces.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/diagnostics/Recurse.h"
#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Stacks.h"

using test::Lines;
using test::Stack;
using test::StackLine;
using test::StayHere;
using test::Symbols;

// Outside of any namespace, so that their symbols are short.

constexpr int kLineOfCapturedHere = __LINE__ + 1;
[[gnu::noinline]] ZBase::CallStack* CapturedHere() {
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    StayHere();
    return stack;
}

[[gnu::noinline]] ZBase::CallStack* ThroughNoexcept() noexcept {
    ZBase::CallStack* stack = CapturedHere();
    StayHere();
    return stack;
}

int CaptureFor(void* stack) {
    *static_cast<ZBase::CallStack**>(stack) = CapturedHere();
    StayHere();
    return 0;
}

namespace {

TEST(CallStack, LineZeroIsTheCallerOfTheFactory) {
    const Stack stack(CapturedHere());
    const std::vector<StackLine> lines = Lines(*stack);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0].symbol, "CapturedHere()");
    EXPECT_EQ(lines[1].symbol,
              "(anonymous namespace)::CallStack_LineZeroIsTheCallerOfTheFactory_Test::TestBody()");
}

// In programs that contain the library, built by each compiler with and without optimisation, also at link
// time.
TEST(CallStack, LineZeroIsTheCallerOfTheFactoryHoweverItIsCompiled) {
    const std::filesystem::path place = ZBASE_BUILD_DIR "/tests/capture/programs";
    if (!exists(place)) GTEST_SKIP() << "not built with a sanitizer";
    int programs = 0;
    for (const auto& file : std::filesystem::directory_iterator(place)) {
        if (file.path().extension() == ".so") continue;
        ++programs;
        const test::ChildResult child = test::RunChild({file.path()});
        std::istringstream output(child.output);
        for (const char* expected : {"Capturer()", "CallerOfCapturer()", "main"}) {
            std::string line;
            std::getline(output, line);
            EXPECT_EQ(test::Parse(line).symbol, expected) << file.path() << child.output << child.errors;
            EXPECT_TRUE(test::Parse(line).file.ends_with("tests/capture/Caller.cpp")) << file.path() << line;
        }
    }
    EXPECT_GE(programs, 5);
}

TEST(CallStack, FileAndLineAreThoseOfTheFunctionsStart) {
    const Stack stack(CapturedHere());
    const StackLine line = Lines(*stack)[0];
    EXPECT_TRUE(line.file.ends_with("tests/diagnostics/CallStackTest.cpp")) << line.file;
    EXPECT_EQ(line.line, std::to_string(kLineOfCapturedHere));
    EXPECT_EQ(line.displacement, "0");
    EXPECT_TRUE(line.module.ends_with("/diagnostics_tests")) << line.module;
}

TEST(CallStack, AddressesAreOfCodeAndFramesGoOutwards) {
    const Stack stack(CapturedHere());
    const std::vector<StackLine> lines = Lines(*stack);
    for (std::size_t i = 1; i != lines.size(); ++i) EXPECT_GE(lines[i].frame, lines[i - 1].frame);
    EXPECT_EQ(lines.back().symbol, "_start");
}

TEST(CallStack, GoesThroughNoexceptLambdasAndHandlers) {
    ZBase::CallStack* captured = nullptr;
    const auto lambda = [&] { captured = ThroughNoexcept(); };
    try {
        throw std::runtime_error("caught below");
    } catch (const std::runtime_error&) {
        Recurse(3, lambda);
    }
    const Stack stack(captured);
    const std::vector<std::string> symbols = Symbols(*stack);
    EXPECT_EQ(symbols[0], "CapturedHere()");
    EXPECT_EQ(symbols[1], "ThroughNoexcept()");
    EXPECT_EQ(std::count(symbols.begin(), symbols.end(), "Recurse(int, std::function<void ()> const&)"), 4);
    EXPECT_EQ(symbols.back(), "_start");
}

TEST(CallStack, GoesThroughAModuleThatIsOpenedAtRunTime) {
    const std::string path = std::string(ZBASE_MODULES_DIR) + "/libSmallFrames.so";
    Stack(CapturedHere()).reset();  // so that the symbols are ready before the module is there
    void* module = dlopen(path.c_str(), RTLD_NOW);
    ASSERT_NE(module, nullptr);
    ZBase::CallStack* captured = nullptr;
    const auto callBack = reinterpret_cast<int (*)(int (*)(void*), void*)>(dlsym(module, "CallBack"));
    callBack(CaptureFor, &captured);
    const Stack stack(captured);
    dlclose(module);
    const std::vector<StackLine> lines = Lines(*stack);
    EXPECT_EQ(lines[2].symbol, "CallBack");
    EXPECT_EQ(lines[2].module, path);
    EXPECT_TRUE(lines[2].file.ends_with("SmallFrames.cpp"));
    EXPECT_EQ(lines.back().symbol, "_start");
}

// After an unload another module may be at the address, whose code looks the same.
TEST(CallStack, NamesTheModuleThatTookThePlaceOfAnother) {
    void* places[2] = {};
    int samePlace = 0;
    for (int round = 0; round != 6; ++round) {
        const bool isTwin = round % 2 != 0;
        const std::string path =
            std::string(ZBASE_MODULES_DIR) + (isTwin ? "/libNestedTwin.so" : "/libNested.so");
        void* module = dlopen(path.c_str(), RTLD_NOW);
        ASSERT_NE(module, nullptr);
        void* function = dlsym(module, "CallNested");
        places[isTwin] = function;
        samePlace += places[0] == places[1];
        ZBase::CallStack* captured = nullptr;
        reinterpret_cast<int (*)(int (*)(void*), void*)>(function)(CaptureFor, &captured);
        dlclose(module);
        const Stack stack(captured);
        const std::vector<StackLine> lines = Lines(*stack);
        EXPECT_EQ(lines[2].symbol,
                  isTwin ? "Veiled(int (*)(void*), void*)" : "Hidden(int (*)(void*), void*)");
        EXPECT_EQ(lines[2].module, path);
        EXPECT_EQ(lines[3].symbol, "CallNested");
        EXPECT_EQ(lines[3].module, path);
        EXPECT_EQ(lines.back().symbol, "_start");
    }
    EXPECT_GT(samePlace, 0) << "the modules never lay at one place, so nothing was shown";
}

// At the addresses of the cached rules, another module with frames of another size.
TEST(CallStack, GoesThroughAModuleThatTookThePlaceOfAnother) {
    void* places[2] = {};
    int samePlace = 0;
    for (int round = 0; round != 6; ++round) {
        const std::string name = round % 2 == 0 ? "/libLargeFrames.so" : "/libLargeFramesToo.so";
        void* module = dlopen((ZBASE_MODULES_DIR + name).c_str(), RTLD_NOW);
        ASSERT_NE(module, nullptr);
        void* function = dlsym(module, "CallBack");
        places[round % 2] = function;
        samePlace += places[0] == places[1];
        ZBase::CallStack* captured = nullptr;
        reinterpret_cast<int (*)(int (*)(void*), void*)>(function)(CaptureFor, &captured);
        dlclose(module);
        const Stack stack(captured);
        const std::vector<std::string> symbols = Symbols(*stack);
        EXPECT_EQ(symbols[2], "CallBack");
        EXPECT_EQ(symbols.back(), "_start");
    }
    EXPECT_TRUE(samePlace > 0 || test::kIsSanitized) << "the modules never lay at one place";
}

// The lines of a unit alone take more of it.
TEST(CallStack, OfAThreadWithASmallStackHasItsLines) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer knows the stacks of threads only";
    EXPECT_EQ(test::InChild([] {
                  pthread_attr_t attributes;
                  pthread_attr_init(&attributes);
                  pthread_attr_setstacksize(&attributes, 64 << 10);
                  ZBase::CallStack* captured = nullptr;
                  const auto capture = [](void* stack) -> void* {
                      *static_cast<ZBase::CallStack**>(stack) = CapturedHere();
                      StayHere();
                      return nullptr;
                  };
                  pthread_t thread{};
                  if (pthread_create(&thread, &attributes, capture, &captured) != 0) return 1;
                  pthread_join(thread, nullptr);
                  const Stack stack(captured);
                  return Symbols(*stack)[0] == "CapturedHere()" ? 0 : 2;
              }),
              0);
}

// The program's own name in the list of modules is empty, and its file is found by the name in /proc.
TEST(CallStack, NamesTheProgramsFunctionsWithoutAProcessList) {
    const int result = test::InChild([] {
        if (!test::HideProc()) return test::kNotAllowed;
        const Stack stack(CapturedHere());
        return Symbols(*stack)[0] == "CapturedHere()" ? 0 : 1;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "no namespaces here";
    EXPECT_EQ(result, 0);
}

TEST(CallStack, WithoutMemoryIsNullOrThrowsAndLeavesNoLockBehind) {
    std::size_t nulls = 0;
    std::size_t throws = 0;
    const auto capture = [&] {
        try {
            const Stack stack(ZBase::CreateCallStack(nullptr));
            nulls += stack == nullptr;
        } catch (const std::bad_alloc&) {
            ++throws;
        }
    };
    std::size_t live = 0;
    std::size_t failures = 0;
    for (int round = 0; round != 2; ++round) {  // after the first nothing is left to be looked up
        nulls = throws = 0;
        live = test::LiveBlocks();
        failures = test::ForEachFailingAllocation(capture);
    }
    EXPECT_EQ(nulls, 1U);
    EXPECT_EQ(throws + nulls, failures);
    EXPECT_GT(failures, 10U);
    EXPECT_EQ(test::LiveBlocks(), live);
    std::thread([] { Stack(CapturedHere()).reset(); }).join();
}

// A signal's stack may be above that of its thread, so that the walk goes down from it.
TEST(CallStack, GoesDownFromASignalsStackToThatOfTheThread) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    static ZBase::CallStack* captured;
    static char* room;
    constexpr std::size_t kHalf = 1 << 20;
    room = static_cast<char*>(
        mmap(nullptr, 2 * kHalf, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(room, MAP_FAILED);
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { captured = CapturedHere(); };
    action.sa_flags = SA_ONSTACK;
    sigaction(SIGUSR1, &action, &before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, room, kHalf);
    pthread_t thread;
    const auto run = [](void*) -> void* {
        const stack_t own{room + kHalf, 0, kHalf};
        sigaltstack(&own, nullptr);
        Recurse(3, [] { raise(SIGUSR1); });
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, nullptr), 0);
    pthread_join(thread, nullptr);
    sigaction(SIGUSR1, &before, nullptr);
    munmap(room, 2 * kHalf);
    const Stack stack(captured);
    const std::vector<std::string> symbols = Symbols(*stack);
    EXPECT_EQ(symbols[0], "CapturedHere()");
    EXPECT_EQ(std::count(symbols.begin(), symbols.end(), "Recurse(int, std::function<void ()> const&)"), 4);
}

TEST(CallStack, OfADamagedStackEnds) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("DamagedStackProbe")});
    EXPECT_EQ(child.exitCode, 0) << "signal " << child.signal;
    const int lines = std::atoi(child.output.c_str());
    EXPECT_GE(lines, 2);
    EXPECT_LE(lines, 6);
}

// From the signal's own stack the walk goes down.
TEST(CallStack, InASignalHandlerGoesOnBehindTheSignal) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    static ZBase::CallStack* captured;
    std::vector<char> room(1 << 18);
    stack_t own{room.data(), 0, room.size()};
    stack_t before{};
    sigaltstack(&own, &before);
    for (const int flags : {0, SA_ONSTACK}) {
        struct sigaction action {};
        struct sigaction earlier {};
        action.sa_handler = [](int) { captured = CapturedHere(); };
        action.sa_flags = flags;
        sigaction(SIGUSR1, &action, &earlier);
        Recurse(3, [] { raise(SIGUSR1); });
        sigaction(SIGUSR1, &earlier, nullptr);
        const Stack stack(captured);
        const std::vector<std::string> symbols = Symbols(*stack);
        EXPECT_EQ(symbols[0], "CapturedHere()");
        EXPECT_EQ(std::count(symbols.begin(), symbols.end(), "Recurse(int, std::function<void ()> const&)"),
                  4);
        EXPECT_EQ(symbols.back(), "_start");
    }
    sigaltstack(&before, nullptr);
}

/// The name of a function without its arguments and result.
std::string BareName(std::string name) {
    name.erase(std::min(name.find('('), name.size()));
    while (name.ends_with(' ')) name.pop_back();
    return name.substr(name.rfind(' ') + 1);
}

// An independent debugger reads the same stack of the same process.
TEST(CallStack, AgreesWithGdb) {
    const test::ChildResult child =
        test::RunChild({"/usr/bin/env", "gdb", "-batch", "-nx", "-ex", "set debuginfod enabled off", "-ex",
                        "run", "-ex", "bt", test::ChildProgram("DebuggedProbe")});
    std::istringstream output(child.output);
    std::vector<std::string> own;
    std::vector<std::string> gdbs;
    for (std::string line; std::getline(output, line);) {
        if (const StackLine parsed = test::Parse(line); parsed.isWhole)
            own.push_back(BareName(parsed.symbol));
        const std::size_t in = line.find(" in ");
        if (line.starts_with("#") && in != std::string::npos)
            gdbs.push_back(BareName(line.substr(in + 4)));
        else if (line.starts_with("#"))
            gdbs.push_back(BareName(line.substr(line.find_first_not_of("#0123456789 "))));
    }
    // The debugger's begins with the raising of the signal, and ends with main.
    const auto start = std::find_if(gdbs.begin(), gdbs.end(),
                                    [](const std::string& name) { return name.starts_with("deep::"); });
    gdbs.erase(gdbs.begin(), start);
    ASSERT_EQ(gdbs.size(), 7U) << child.output << child.errors;
    ASSERT_GE(own.size(), gdbs.size()) << child.output;
    own.resize(gdbs.size());
    EXPECT_EQ(own, gdbs) << child.output;
}

}  // namespace
