#include <Base/platform/os/host/Processor.h>

namespace ZBase::os {

#if defined(__x86_64__)

// The compiler's run-time support runs cpuid once, and tests whether the system saves the wide registers.

bool ProcessorHasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

bool ProcessorHasAvx512() {
    return ProcessorHasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
}

#else

bool ProcessorHasAvx2() {
    return false;
}

bool ProcessorHasAvx512() {
    return false;
}

#endif

}  // namespace ZBase::os
