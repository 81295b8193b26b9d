#pragma once

#include <Base/ZBase.h>

#include <climits>
#include <thread>

// Real faults of the processor, one function each. An array bound is missing: in 64-bit mode no instruction
// checks one.

namespace test {

inline char* volatile gNull = nullptr;
inline volatile int gZero = 0;
inline volatile int gMinusOne = -1;
inline volatile int gLeast = INT_MIN;
inline volatile int gSink = 0;
inline volatile double gDouble = 0;
inline double gDenormal = 1e-310;

[[gnu::noipa]] inline void WriteToNull() {
    *static_cast<volatile char*>(gNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] inline void ReadFromNull() {
    gSink = *static_cast<volatile char*>(gNull);
    asm volatile("");
}

[[gnu::noipa]] inline void CallNull() {
    reinterpret_cast<void (*)()>(gNull)();
    asm volatile("");
}

[[gnu::noipa]] inline void CallData() {
    static char data[16];
    char* volatile place = data;
    reinterpret_cast<void (*)()>(place)();
    asm volatile("");
}

[[gnu::noipa]] inline void ReadOutsideOfTheAddressSpace() {
    gSink = *reinterpret_cast<volatile char*>(0x8000'0000'0000'0000u);
    asm volatile("");
}

[[gnu::noipa]] inline void WriteToCode() {
    *reinterpret_cast<volatile char*>(&WriteToNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] inline void ReadMisaligned() {
    alignas(16) static char place[32];
    // The flag that makes the processor check alignment.
    asm volatile("pushf\n\torl $0x40000, (%%rsp)\n\tpopf\n\tmovl 1(%0), %%eax"
                 :
                 : "r"(place)
                 : "eax", "cc", "memory");
}

[[gnu::noipa]] inline void DivideByZero() {
    gSink = 1 / gZero;
    asm volatile("");
}

[[gnu::noipa]] inline void DivideTheLeastByMinusOne() {
    gSink = gLeast / gMinusOne;
    asm volatile("");
}

[[gnu::noipa]] inline void RunIllegalInstruction() {
    asm volatile("ud2");
}

[[gnu::noipa]] inline void RunPrivilegedInstruction() {
    asm volatile("hlt");
}

[[gnu::noipa]] inline void HitBreakpoint() {
    asm volatile("int3");
}

[[gnu::noipa]] inline void SingleStep() {
    asm volatile("pushf\n\torl $0x100, (%%rsp)\n\tpopf\n\tnop" : : : "cc", "memory");
}

// Runs `operation` with one of the vector unit's exceptions unmasked.
inline void WithVectorException(unsigned int flag, void (*operation)()) {
    const unsigned int before = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr((before & ~0x3Fu) & ~(flag << 7));
    try {
        operation();
    } catch (...) {
        __builtin_ia32_ldmxcsr(before);
        throw;
    }
    __builtin_ia32_ldmxcsr(before);
}

[[gnu::noipa]] inline void FloatDenormal() {
    WithVectorException(0x02, [] {
        asm volatile("movsd %0, %%xmm0\n\taddsd %%xmm0, %%xmm0" : : "m"(gDenormal) : "xmm0");
    });
}
[[gnu::noipa]] inline void FloatDivideByZero() {
    WithVectorException(0x04, [] { gDouble = 1.0 / gDouble; });
}
[[gnu::noipa]] inline void FloatInexact() {
    WithVectorException(0x20, [] {
        volatile double three = 3;
        gDouble = 1.0 / three;
    });
}
[[gnu::noipa]] inline void FloatInvalid() {
    WithVectorException(0x01, [] { gDouble = gDouble / gDouble; });
}
[[gnu::noipa]] inline void FloatOverflow() {
    WithVectorException(0x08, [] {
        volatile double huge = 1e308;
        gDouble = huge * huge;
    });
}
[[gnu::noipa]] inline void FloatUnderflow() {
    WithVectorException(0x10, [] {
        volatile double small = 1e-300;
        gDouble = small * small;
    });
}

// The ninth value does not fit into the stack of the x87.
[[gnu::noipa]] inline void FloatStackOverflow() {
    const unsigned short control = 0x037E;  // invalid operations are not masked
    asm volatile(
        "fninit\n\tfldcw %0\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfwait"
        :
        : "m"(control));
}

/// The code of a fault that is caught; 0 if there was none.
template <class Fault>
unsigned int CodeOf(Fault fault) {
    try {
        fault();
    } catch (const ZBase::StructuredExceptionImp& exception) {
        return exception.GetCode();
    }
    return 0;
}

/// Runs on a thread of its own with a translator, since that can't be undone.
template <class Body>
void OnTranslatedThread(Body body) {
    std::thread([&] {
        ZBase::SetExceptionTranslator();
        body();
        asm volatile("fninit");  // clears the state of the fault
    }).join();
}

}  // namespace test
