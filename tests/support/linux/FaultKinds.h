#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/support/Faults.h"

// The faults with the code that each must be translated to, and the signal that it is. There is none with the
// code of an array bound (0xC000008C).

namespace test {

[[gnu::noipa]] inline void ReadBehindTheEndOfAFile() {
    static void* const pages = [] {
        const int file = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        void* mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
        close(file);
        return mapped;
    }();
    gSink = *static_cast<volatile char*>(pages);
    asm volatile("");
}

struct FaultKind {
    const char* name;
    void (*fault)();
    unsigned int code;  // what it is translated to
    int signal;         // what it is without a translator
};

inline constexpr FaultKind kFaults[] = {
    {"WriteToNull", WriteToNull, 0xC0000005, SIGSEGV},
    {"ReadFromNull", ReadFromNull, 0xC0000005, SIGSEGV},
    {"CallNull", CallNull, 0xC0000005, SIGSEGV},
    {"CallData", CallData, 0xC0000005, SIGSEGV},
    {"OutsideOfTheAddressSpace", ReadOutsideOfTheAddressSpace, 0xC0000005, SIGSEGV},
    {"WriteToCode", WriteToCode, 0xC0000005, SIGSEGV},
    {"BehindTheEndOfAFile", ReadBehindTheEndOfAFile, 0xC0000006, SIGBUS},
    {"Misaligned", ReadMisaligned, 0x80000002, SIGBUS},
    {"IntegerDivideByZero", DivideByZero, 0xC0000094, SIGFPE},
    {"IntegerOverflow", DivideTheLeastByMinusOne, 0xC0000095, SIGFPE},
    {"IllegalInstruction", RunIllegalInstruction, 0xC000001D, SIGILL},
    {"PrivilegedInstruction", RunPrivilegedInstruction, 0xC0000096, SIGSEGV},
    {"Breakpoint", HitBreakpoint, 0x80000003, SIGTRAP},
    {"SingleStep", SingleStep, 0x80000004, SIGTRAP},
    {"FloatDenormal", FloatDenormal, 0xC000008D, SIGFPE},
    {"FloatDivideByZero", FloatDivideByZero, 0xC000008E, SIGFPE},
    {"FloatInexact", FloatInexact, 0xC000008F, SIGFPE},
    {"FloatInvalid", FloatInvalid, 0xC0000090, SIGFPE},
    {"FloatOverflow", FloatOverflow, 0xC0000091, SIGFPE},
    {"FloatStackOverflow", FloatStackOverflow, 0xC0000092, SIGFPE},
    {"FloatUnderflow", FloatUnderflow, 0xC0000093, SIGFPE},
};

}  // namespace test
