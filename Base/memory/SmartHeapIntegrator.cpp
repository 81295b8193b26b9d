#include <Base/memory/Buffer.h>
#include <Base/memory/SmartHeapIntegrator.h>
#include <Base/platform/os/Modules.h>

#include <functional>

namespace ZBase {

namespace {

// The vendor's record, which is known as words only, with room to spare behind the known ones.
struct MEM_PROCESS_INFO2 {
    std::uint64_t words[32];
};

constexpr std::size_t kKnownWords = 14;
static_assert(sizeof(MEM_PROCESS_INFO2) >= kKnownWords * sizeof(std::uint64_t));

/// An entry point of the heap; empty if there is none.
template <class Signature>
std::function<Signature> FindEntryPoint(const char* name) {
    const os::Module heap = os::FindLoadedModule("shsmp64");
    if (heap == nullptr) return {};
    return reinterpret_cast<Signature*>(os::FindFunction(heap, name));
}

}  // namespace

bool SmartHeapIntegrator::mSmartHeapEnabled = true;
bool SmartHeapIntegrator::mHookEnabled = false;
void (*SmartHeapIntegrator::mpMemHookProcess)() = nullptr;
void (*SmartHeapIntegrator::mpMemPatchProcess)() = nullptr;

SmartHeapIntegrator& SmartHeapIntegrator::operator=(const SmartHeapIntegrator&) = default;
SmartHeapIntegrator& SmartHeapIntegrator::operator=(SmartHeapIntegrator&&) noexcept = default;

void SmartHeapIntegrator::Init() {}

void SmartHeapIntegrator::MemPatchProcess() {}

bool SmartHeapIntegrator::IsSmartHeapEnabled() {
    return mSmartHeapEnabled;
}

void SmartHeapIntegrator::SetHookingEnabled() {
    mHookEnabled = true;
}

bool SmartHeapIntegrator::GetHookingEnabled() {
    return mHookEnabled;
}

bool SmartHeapIntegrator::GetMemoryUsageInfo(MemInfo& info) {
    static const auto processInfo = FindEntryPoint<int(MEM_PROCESS_INFO2*)>("MemProcessInfo2");
    if (!processInfo) return false;
    MEM_PROCESS_INFO2 record{};
    if (processInfo(&record) == 0) return false;
    const std::uint64_t* words = record.words;
    info.usedBytes = words[7] + Buffer::GetOnBoundaryAllocTotal();
    info.freeBytes = words[8] > words[7] ? words[8] - words[7] : 0;
    info.peakBytes = words[9];
    info.smallBlockBytes = words[10];
    info.largeBlockBytes = words[11];
    info.systemBytes = words[12];
    info.poolCount = words[0];
    info.threadCount = static_cast<std::uint32_t>(words[13]);
    return true;
}

std::size_t SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(std::size_t size) {
    static const auto shrinkCache = FindEntryPoint<std::size_t(std::size_t)>("ShrinkCache");
    return shrinkCache ? shrinkCache(size) : 0;
}

}  // namespace ZBase
