#include <Base/frame/WideLiteral.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/ProcessInformation.h>
#include <Base/platform/os/modules/Modules.h>
#include <Base/platform/os/processes/Processes.h>

#include <atomic>
#include <cstdio>

namespace ZBase {

namespace {

constexpr unsigned int kImagePathCapacity = 1024;
constexpr unsigned int kModulePathCapacity = 260;

enum class ECounters : unsigned char { Unknown, Ready, Missing };

// No guarded static: a forked child could find the guard locked for ever.
std::atomic<ECounters> sCounters{ECounters::Unknown};

bool FindMemoryCounters() {
    switch (os::OpenMemoryCounters()) {
        case os::EMemoryCounters::Ready:
            return true;
        case os::EMemoryCounters::NoModule:
            std::fputs("\n psapi.dll not loaded...Memory Surge Monitor will not work", stdout);
            return false;
        case os::EMemoryCounters::NoFunction:
            std::fputs("GetProcAddress of GetProcessMemoryInfo failed.\n", stdout);
            return false;
    }
    return false;
}

// Two first calls at once may both look, with the same result.
bool HasMemoryCounters() {
    ECounters counters = sCounters;
    if (counters == ECounters::Unknown) {
        counters = FindMemoryCounters() ? ECounters::Ready : ECounters::Missing;
        sCounters = counters;
    }
    return counters == ECounters::Ready;
}

}  // namespace

ReturnWString GetCurrentProcessName() {
    return ReturnWString(os::CommandLine().c_str());
}

ReturnWString GetProcessName(unsigned int processId) {
    // Neither result is checked, and the process is not closed; the header says so.
    unsigned short path[kImagePathCapacity]{};
    os::GetProcessImagePath(os::OpenProcess(processId, os::EProcessAccess::Query), path, kImagePathCapacity);
    const unsigned short separator = os::PathSeparator();
    const unsigned short* name = path;
    for (const unsigned short* unit = path; *unit != 0; ++unit) {
        if (*unit == separator) name = unit + 1;
    }
    return ReturnWString(name);
}

bool IsProcessAlive(std::uint64_t processId) {
    const os::Process process =
        os::OpenProcess(static_cast<unsigned int>(processId), os::EProcessAccess::Wait);
    const bool alive = os::WaitForProcess(process, 0) == os::EWaitResult::Timeout;
    if (process != nullptr) os::CloseProcess(process, os::EProcessAccess::Wait);
    return alive;
}

unsigned long GetPrivateBytes() {
    std::uint64_t bytes = 0;
    if (!HasMemoryCounters() || !os::GetCommittedBytes(bytes)) {
        std::fputs("GetProcessMemoryInfo failed\n", stdout);
        return 0;
    }
    return static_cast<std::uint32_t>(bytes);
}

ReturnWString GetModuleFileNameByAddressWithinModule(const void* address) {
    const void* base = nullptr;
    if (!os::FindAllocationBase(address, base)) detail::ThrowFailure("::VirtualQuery() failed."_w);
    if (base == nullptr) detail::ThrowFailure("::VirtualQuery() returned NULL AllocationBase."_w);
    unsigned short path[kModulePathCapacity]{};
    if (os::GetModulePathAt(base, path, kModulePathCapacity) == 0) {
        detail::ThrowSystemFailure("::GetModuleFileNameW() failed."_w);
    }
    return ReturnWString(path);
}

void PauseCurrentProcess() {}

}  // namespace ZBase
