#include <Base/platform/os/host/ProcessLimits.h>

#include <Base/platform/os/host/Host.h>

#include <windows.h>

#include <algorithm>
#include <bit>

namespace ZBase::os {

namespace {

// What the job of this process says of it; false where it is in none, or where the job does not say.
template <class Facts>
bool AskJob(JOBOBJECTINFOCLASS kind, Facts& facts) {
    return QueryInformationJobObject(nullptr, kind, &facts, sizeof facts, nullptr) != 0;
}

// The processors that the time reaches for which the job is given at most, in each interval.
unsigned int ProcessorsOfJob() {
    constexpr DWORD hardCap = JOB_OBJECT_CPU_RATE_CONTROL_ENABLE | JOB_OBJECT_CPU_RATE_CONTROL_HARD_CAP;
    constexpr std::uint64_t whole = 10000;  // the time of all processors
    JOBOBJECT_CPU_RATE_CONTROL_INFORMATION facts{};
    const auto all = static_cast<unsigned int>(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
    if (!AskJob(JobObjectCpuRateControlInformation, facts) || (facts.ControlFlags & hardCap) != hardCap)
        return all;
    const std::uint64_t share = (std::uint64_t{facts.CpuRate} * all + whole - 1) / whole;
    return static_cast<unsigned int>(share);
}

}  // namespace

unsigned int UsableProcessors() {
    DWORD_PTR ofProcess = 0;
    DWORD_PTR ofSystem = 0;
    // A process that runs on several groups of processors is told of none.
    const bool isTold =
        GetProcessAffinityMask(GetCurrentProcess(), &ofProcess, &ofSystem) != 0 && ofProcess != 0;
    const unsigned int allowed =
        isTold ? static_cast<unsigned int>(std::popcount(static_cast<std::uint64_t>(ofProcess)))
               : static_cast<unsigned int>(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
    return std::max(1u, std::min(allowed, ProcessorsOfJob()));
}

std::uint64_t UsableMemory() {
    MEMORYSTATUSEX machine{};
    machine.dwLength = sizeof machine;
    GlobalMemoryStatusEx(&machine);
    std::uint64_t memory = machine.ullTotalPhys;
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION job{};
    if (AskJob(JobObjectExtendedLimitInformation, job)) {
        const DWORD flags = job.BasicLimitInformation.LimitFlags;
        if ((flags & JOB_OBJECT_LIMIT_PROCESS_MEMORY) != 0)
            memory = std::min<std::uint64_t>(memory, job.ProcessMemoryLimit);
        if ((flags & JOB_OBJECT_LIMIT_JOB_MEMORY) != 0)
            memory = std::min<std::uint64_t>(memory, job.JobMemoryLimit);
    }
    return memory;
}

}  // namespace ZBase::os
