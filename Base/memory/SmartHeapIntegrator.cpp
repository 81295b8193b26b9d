#include <Base/memory/Buffer.h>
#include <Base/memory/SmartHeapIntegrator.h>
#include <Base/platform/os/modules/Modules.h>

#include <atomic>

namespace ZBase {

namespace {

// The vendor's record: only its words are known; space behind the known ones.
struct MEM_PROCESS_INFO2 {
    std::uint64_t words[32];
};

constexpr std::size_t kKnownWords = 14;
static_assert(sizeof(MEM_PROCESS_INFO2) >= kKnownWords * sizeof(std::uint64_t));

// An entry point of the heap. The result of the first look-up is kept, also if there is none. Two threads may
// look at once, and the first result counts; there is no lock that a forked child could find taken.
class EntryPoint {
public:
    constexpr explicit EntryPoint(const char* name) : mName(name) {}

    // Null if there is none.
    template <class Signature>
    Signature* As() {
        void* known = mFunction.load(std::memory_order_acquire);
        if (known == &sUnknown) {
            void* const found = Find();
            if (mFunction.compare_exchange_strong(known, found, std::memory_order_acq_rel)) known = found;
        }
        return reinterpret_cast<Signature*>(known);
    }

private:
    void* Find() const {
        const os::Module heap = os::FindLoadedModule("shsmp64");
        return heap == nullptr ? nullptr : os::FindFunction(heap, mName);
    }

    static constinit inline char sUnknown = 0;  // its address: not looked up yet

    const char* const mName;
    std::atomic<void*> mFunction{&sUnknown};
};

constinit EntryPoint sProcessInfo("MemProcessInfo2");
constinit EntryPoint sShrinkCache("ShrinkCache");

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
    auto* const processInfo = sProcessInfo.As<int(MEM_PROCESS_INFO2*)>();
    if (processInfo == nullptr) return false;
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
    auto* const shrinkCache = sShrinkCache.As<std::size_t(std::size_t)>();
    return shrinkCache != nullptr ? shrinkCache(size) : 0;
}

}  // namespace ZBase
