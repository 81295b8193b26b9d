#include <Base/diagnostics/CallStack.h>
#include <Base/frame/Threads.h>
#include <TestPlaces.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/diagnostics/Recurse.h"
#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Stacks.h"

using test::Stack;
using test::StackLine;
using test::Symbols;

struct Waiter {
    std::atomic<bool> isThere{false};
    std::atomic<bool> mayGo{false};
};

// Not inlined, so that the stack has these frames.
void* SpinOnly(void* argument) {
    auto& waiter = *static_cast<Waiter*>(argument);
    waiter.isThere = true;
    while (!waiter.mayGo) {
    }
    return nullptr;
}

namespace {

Stack Capture(std::thread& thread) {
    return Stack(ZBase::CreateCallStack(reinterpret_cast<void*>(thread.native_handle())));
}

/// A thread that spins within ten frames of `Recurse`, until this ends.
class SpinningThread {
public:
    SpinningThread() {
        while (!mWaiter.isThere) std::this_thread::yield();
    }
    ~SpinningThread() {
        mWaiter.mayGo = true;
        mThread.join();
    }
    SpinningThread(const SpinningThread&) = delete;
    SpinningThread& operator=(const SpinningThread&) = delete;

    Stack Captured() { return Capture(mThread); }
    Stack CapturedById() const { return Stack(ZBase::CreateCallStackByThreadId(mId)); }

private:
    Waiter mWaiter;
    std::atomic<unsigned long> mId{0};
    std::thread mThread{[this] {
        mId = ZBase::GetCurrentThreadID();
        Recurse(9, [this] { SpinOnly(&mWaiter); });
    }};
};

TEST(CallStackOfAThread, LacksItsFiveInnermostFrames) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    const Stack stack = SpinningThread().Captured();
    const std::vector<std::string> symbols = Symbols(*stack);
    const auto count =
        std::count(symbols.begin(), symbols.end(), "Recurse(int, std::function<void ()> const&)");
    // SpinOnly and at least the function object's call lie further in than the ten.
    EXPECT_GE(count, 10 + 2 - 5 - 1);
    EXPECT_LE(count, 10 - 2);
    EXPECT_TRUE(symbols[0].starts_with("Recurse(")) << symbols[0];
}

TEST(CallStackOfAThread, OfAtMostFiveFramesHasNoLinesAndNoText) {
    Waiter waiter;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, SpinOnly, &waiter), 0);
    while (!waiter.isThere) std::this_thread::yield();
    const Stack stack(ZBase::CreateCallStack(reinterpret_cast<void*>(thread)));
    waiter.mayGo = true;
    pthread_join(thread, nullptr);
    EXPECT_EQ(stack->GetLineCount(), 0U);
    EXPECT_EQ(stack->ToString()[0], 0);
}

TEST(CallStackOfAThread, ByItsIdIsTheSameWhileItWaits) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    SpinningThread thread;
    const Stack byId = thread.CapturedById();
    const Stack byHandle = thread.Captured();
    EXPECT_GT(byId->GetLineCount(), 5U);
    EXPECT_EQ(Symbols(*byId), Symbols(*byHandle));
}

TEST(CallStackOfAThread, ByAnIdThatNamesNoThreadHasNoLines) {
    for (const unsigned long id : {0UL, 1UL, 0x3FFFFFFFUL, ~0UL}) {
        const Stack stack(ZBase::CreateCallStackByThreadId(id));
        ASSERT_NE(stack, nullptr);
        EXPECT_EQ(stack->GetLineCount(), 0U) << id;
    }
}

TEST(CallStackOfAThread, ByTheOwnIdBeginsAtTheCaller) {
    const Stack own(ZBase::CreateCallStackByThreadId(ZBase::GetCurrentThreadID()));
    const Stack same(ZBase::CreateCallStack(nullptr));
    ASSERT_EQ(own->GetLineCount(), same->GetLineCount());
    const std::vector<StackLine> lines = test::Lines(*own);
    EXPECT_NE(lines[0].symbol.find("ByTheOwnIdBeginsAtTheCaller"), std::string::npos) << lines[0].symbol;
    for (unsigned int i = 1; i != lines.size(); ++i)
        EXPECT_EQ(test::Narrow(own->GetLine(i).GetText()), test::Narrow(same->GetLine(i).GetText()));
}

TEST(CallStackOfAThread, ThatHasJustEndedHasNoLines) {
    std::atomic<unsigned long> id{0};
    std::thread thread([&] { id = ZBase::GetCurrentThreadID(); });
    while (id == 0) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const Stack byHandle = Capture(thread);
    const Stack byId(ZBase::CreateCallStackByThreadId(id));
    thread.join();
    EXPECT_EQ(byHandle->GetLineCount(), 0U);
    EXPECT_EQ(byId->GetLineCount(), 0U);
}

TEST(CallStackOfAThread, WithoutMemoryLetsItGoOnAfterwards) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    SpinningThread thread;  // whose end would not come if it were still stopped
    const std::size_t failures = test::ForEachFailingAllocation([&] {
        try {
            thread.Captured().reset();
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GT(failures, 10U);
    EXPECT_GT(thread.Captured()->GetLineCount(), 5U);
}

// In a child: the lines of a thread before and after something is taken from the process, which returns 0 or
// what the child ends with.
int CompareLines(int (*take)()) {
    return test::InChild([take] {
        SpinningThread thread;
        const unsigned int before = thread.Captured()->GetLineCount();
        if (const int failure = take(); failure != 0) return failure;
        const unsigned int behind = thread.Captured()->GetLineCount();
        return before >= 10 && behind == before ? 0 : 10 + static_cast<int>(behind);
    });
}

// As in a sandbox that keeps processes from reading others.
TEST(CallStackOfAThread, IsTheSameWhereTheSystemRefusesToReadIt) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs the calls itself";
    const int result = CompareLines([] {
        return test::RefuseCalls({SYS_process_vm_readv, SYS_mincore}, EPERM) ? 0 : test::kNotAllowed;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result, 0);
}

// A server that has run out of them is one whose stacks are wanted.
TEST(CallStackOfAThread, IsTheSameWithoutADescriptor) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs descriptors itself";
    EXPECT_EQ(CompareLines([] {
                  const rlimit few{64, 64};
                  setrlimit(RLIMIT_NOFILE, &few);
                  while (dup(STDIN_FILENO) >= 0) continue;
                  return errno == EMFILE ? 0 : 1;
              }),
              0);
}

std::pair<dev_t, ino_t> FileOf(int descriptor) {
    struct stat file {};
    return fstat(descriptor, &file) == 0 ? std::pair(file.st_dev, file.st_ino) : std::pair(dev_t{}, ino_t{});
}

// What stands in for the descriptor is a process for a moment.
TEST(CallStackOfAThread, WithoutADescriptorLeavesNoChildAndTheDescriptorsAsTheyWere) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs descriptors itself";
    EXPECT_EQ(test::InChild([] {
                  SpinningThread thread;
                  thread.Captured().reset();  // debug help is opened once
                  const rlimit few{64, 64};
                  setrlimit(RLIMIT_NOFILE, &few);
                  while (dup(STDIN_FILENO) >= 0) continue;
                  std::vector<std::pair<dev_t, ino_t>> files;
                  for (int file = 0; file != 64; ++file) files.push_back(FileOf(file));
                  if (thread.Captured()->GetLineCount() == 0) return 1;
                  if (waitpid(-1, nullptr, __WALL | WNOHANG) != -1 || errno != ECHILD) return 2;
                  // The same files: a descriptor that was given up may be another's by now.
                  for (int file = 0; file != 64; ++file)
                      if (FileOf(file) != files[static_cast<std::size_t>(file)]) return 3;
                  rlimit limit{};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  return limit.rlim_cur == few.rlim_cur ? 0 : 4;
              }),
              0);
}

// A signal that it waits for is one that somebody sent it.
TEST(CallStackOfAThread, ThatWaitsForSignalsIsEmptyWhereNoDescriptorIsAllowedAndIsSentNone) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs descriptors itself";
    const int result = test::InChild([] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        std::atomic<bool> ends{false};
        std::atomic<bool> received{false};
        std::thread waiter([&] {
            const timespec moment{0, 10'000'000};
            while (!ends) {
                if (sigtimedwait(&all, nullptr, &moment) > 0) received = true;
            }
        });
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        const bool isEmpty = Capture(waiter)->GetLineCount() == 0;
        ends = true;
        waiter.join();
        return (isEmpty ? 0 : 1) + (received ? 2 : 0);
    });
    EXPECT_EQ(result, 0);
}

std::string RunThreadProbe(const char* what) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("ThreadProbe"), ZBASE_LIBRARY, what});
    EXPECT_EQ(child.exitCode, 0) << "signal " << child.signal << child.errors;
    return child.output;
}

TEST(CallStackOfAThread, ThatBlocksAllSignalsHasNoLinesAndDoesItNoHarm) {
    EXPECT_EQ(RunThreadProbe("close"),
              "0 lines of a thread that blocks all signals\nthe thread is unharmed\n");
}

TEST(CallStackOfAThread, IsCapturedWhileItHoldsTheLocksOfAllStreams) {
    if (test::kIsSanitized) GTEST_SKIP() << "the call passes through the sanitizer's heap";
    EXPECT_EQ(RunThreadProbe("streams"), "1\n");
}

TEST(CallStackOfAThread, IsCapturedWhileItIsInTheHeap) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has a heap of its own";
    EXPECT_EQ(RunThreadProbe("heap"), "1\n");
}

TEST(CallStackOfAThread, IsCapturedWhileItIsInTheLoader) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer stands before the loader";
    EXPECT_EQ(RunThreadProbe("loader"), "1\n");
}

// What stops it has its processor flags.
TEST(CallStackOfAThread, ThatMayNotReadAcrossAlignmentIsCaptured) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    constexpr unsigned long long kAlignmentCheckFlag = 0x40000;
    Waiter waiter;
    std::thread thread([&] {
        const auto before = __builtin_ia32_readeflags_u64();
        __builtin_ia32_writeeflags_u64(before | kAlignmentCheckFlag);
        Recurse(9, [&] { SpinOnly(&waiter); });
        __builtin_ia32_writeeflags_u64(before);
    });
    while (!waiter.isThere) std::this_thread::yield();
    const Stack stack = Capture(thread);
    waiter.mayGo = true;
    thread.join();
    EXPECT_GT(stack->GetLineCount(), 5U);
}

TEST(CallStackOfAThread, TakesAnotherSignalWhenItsOwnIsTaken) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    EXPECT_EQ(RunThreadProbe("taken"), "some, kept 1\n");
}

// Results of earlier reads are kept.
TEST(CallStackOfAThread, KeepsItsSymbolsWhenNoFileCanBeOpened) {
    EXPECT_EQ(RunThreadProbe("files"), "111\n");
}

// They allocate, throw and end during the captures; a deadlock runs into the test's time limit.
TEST(CallStackOfAThread, OfAHundredIsCapturedWhileTheyRunAllocateThrowAndEnd) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    std::atomic<bool> stop{false};
    std::atomic<unsigned int> ready{0};
    std::vector<std::atomic<unsigned long>> ids(100);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i != ids.size(); ++i) {
        threads.emplace_back([&, i] {
            ids[i] = ZBase::GetCurrentThreadID();
            ++ready;
            Recurse(8, [&] {
                // Every second one ends by itself.
                for (std::size_t round = 0; !stop && (i % 2 == 0 || round != 20 + i); ++round) {
                    std::vector<std::string> texts;
                    for (std::size_t size = 1; size < 3000; size *= 2)
                        texts.emplace_back(size * (i + 1), 'x');
                    try {
                        throw std::runtime_error(texts.back());
                    } catch (const std::runtime_error&) {
                    }
                    if (i % 10 == 0) Stack(ZBase::CreateCallStack(nullptr)).reset();
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
            });
        });
    }
    while (ready != ids.size()) std::this_thread::yield();
    std::size_t lines = 0;
    for (int round = 0; round != 2; ++round) {
        for (std::size_t i = 0; i != ids.size(); ++i) {
            const Stack byHandle = Capture(threads[i]);
            const Stack byId(ZBase::CreateCallStackByThreadId(ids[i]));
            lines += byHandle->GetLineCount() + byId->GetLineCount();
        }
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(lines, 500U);
}

}  // namespace
