#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#include <cstdio>

#include "tests/support/Faults.h"

// The signals that become exceptions.

namespace {

using test::CodeOf;
using test::DivideByZero;
using test::OnTranslatedThread;
using test::WriteToNull;
using ZBase::StructuredException;

// The host's own handler is called for faults that are not translated. These tests run in processes in which
// no translator was set before.

void ExitByHandler(int) {
    _exit(42);
}

template <class Body>
void ExpectToReachTheHandlerOfTheHost(Body body) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [&] {
        signal(SIGSEGV, ExitByHandler);
        body();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(42), "");
}

TEST(StructuredExceptionSignals, OneOfAnotherThreadGoesToTheHandlerThatWasThereBefore) {
    ExpectToReachTheHandlerOfTheHost([] {
        OnTranslatedThread([] { EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005); });
        WriteToNull();
    });
}

TEST(StructuredExceptionSignals, OneThatWasSentGoesToTheHandlerThatWasThereBefore) {
    ExpectToReachTheHandlerOfTheHost([] { OnTranslatedThread([] { raise(SIGSEGV); }); });
}

TEST(StructuredExceptionSignals, ACallToNowhereThatNoCodeMadeGoesToThatHandlerToo) {
    ExpectToReachTheHandlerOfTheHost([] {
        OnTranslatedThread([] { asm volatile("pushq $16\n\tjmp *%0" : : "r"(0L) : "memory"); });
    });
}

TEST(StructuredExceptionSignals, AreBlockedAsBefore) {
    OnTranslatedThread([] {
        sigset_t before;
        sigset_t after;
        pthread_sigmask(SIG_SETMASK, nullptr, &before);
        try {
            WriteToNull();
        } catch (const StructuredException&) {
        }
        pthread_sigmask(SIG_SETMASK, nullptr, &after);
        for (int signal = 1; signal < NSIG; ++signal) {
            EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
        }
    });
}

TEST(StructuredExceptionSignals, LeaveTheCrashStackOfTheirThreadFree) {
    OnTranslatedThread([] {
        EXPECT_TRUE(ZBase::InstallCrashStack());
        for (int i = 0; i != 1000; ++i) EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005);
        stack_t stack{};
        sigaltstack(nullptr, &stack);
        EXPECT_EQ(stack.ss_flags, 0);
    });
}

TEST(StructuredExceptionSignals, HundredThousandLeakNothing) {
    std::fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(sink, STDOUT_FILENO);
    const auto resident = [] {
        std::FILE* file = std::fopen("/proc/self/statm", "r");
        long total = 0;
        long pages = 0;
        if (file == nullptr) return pages;  // it can't be seen
        EXPECT_EQ(std::fscanf(file, "%ld %ld", &total, &pages), 2);
        std::fclose(file);
        return pages;
    };
    long before = 0;
    long after = 0;
    int caught = 0;
    OnTranslatedThread([&] {
        for (int i = 0; i != 100000; ++i) {
            if (i == 1000) before = resident();
            try {
                i % 2 == 0 ? WriteToNull() : DivideByZero();
            } catch (const StructuredException&) {
                ++caught;
            }
        }
        after = resident();
    });
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
    close(sink);
    EXPECT_EQ(caught, 100000);
    EXPECT_LT(after, before + 32);  // pages
}

}  // namespace
