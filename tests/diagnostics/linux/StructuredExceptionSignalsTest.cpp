#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
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

// As if the system told this thread of a fault.
[[gnu::noipa]] void Tell(int signal, int reason) {
    siginfo_t information{};
    information.si_signo = signal;
    information.si_code = reason;
    const long process = getpid();
    const long thread = gettid();
    const long number = signal;
    register const siginfo_t* fourth asm("r10") = &information;
    long result = SYS_rt_tgsigqueueinfo;
    asm volatile("syscall\n\tnop"
                 : "+a"(result)
                 : "D"(process), "S"(thread), "d"(number), "r"(fourth)
                 : "rcx", "r11", "memory");
}

TEST(StructuredExceptionSignals, HaveACodeForEachReasonThatASystemMayTell) {
    struct Row {
        int signal;
        int reason;
        unsigned int code;
    };
    OnTranslatedThread([] {
        for (const Row& row : {Row{SIGFPE, FPE_INTOVF, 0xC0000095}, Row{SIGFPE, FPE_FLTDIV, 0xC000008E},
                               Row{SIGFPE, FPE_FLTOVF, 0xC0000091}, Row{SIGFPE, FPE_FLTRES, 0xC000008F},
                               Row{SIGFPE, FPE_FLTINV, 0xC0000090}, Row{SIGFPE, FPE_FLTSUB, 0xC000008C},
                               Row{SIGILL, ILL_PRVOPC, 0xC0000096}, Row{SIGILL, ILL_PRVREG, 0xC0000096},
                               Row{SIGILL, ILL_ILLOPN, 0xC000001D}, Row{SIGTRAP, TRAP_TRACE, 0x80000004},
                               Row{SIGTRAP, TRAP_HWBKPT, 0x80000004}, Row{SIGTRAP, TRAP_BRKPT, 0x80000003},
                               Row{SIGBUS, BUS_ADRALN, 0x80000002}, Row{SIGBUS, BUS_OBJERR, 0xC0000006},
                               Row{SIGSEGV, SEGV_MAPERR, 0xC0000005}, Row{SIGSEGV, SEGV_ACCERR, 0xC0000005}})
            EXPECT_EQ(CodeOf([&row] { Tell(row.signal, row.reason); }), row.code)
                << row.signal << " " << row.reason;
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
