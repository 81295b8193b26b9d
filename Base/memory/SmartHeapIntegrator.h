#pragma once

#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>

namespace ZBase {

/// The link to SmartHeap, a vendor's heap ("shsmp64.dll", "libshsmp64.so"), if that is in the process; the
/// library never loads it. If it is not, every query returns false or 0. It is looked for once, by the first
/// call that needs it; if it is loaded later it is not noticed.
class ZBASE_API SmartHeapIntegrator {
public:
    /// What the heap holds, as it reports it. The field names are guesses at their meaning.
    struct MemInfo {
        std::uint64_t usedBytes;  // with the on-boundary memory of buffers, which the heap can't see
        std::uint64_t freeBytes;  // held and not used
        std::uint64_t peakBytes;
        std::uint64_t smallBlockBytes;
        std::uint64_t largeBlockBytes;
        std::uint64_t systemBytes;
        std::uint64_t poolCount;
        std::uint32_t threadCount;
    };

    SmartHeapIntegrator() = default;
    SmartHeapIntegrator(const SmartHeapIntegrator&) = default;
    SmartHeapIntegrator& operator=(const SmartHeapIntegrator&);
    SmartHeapIntegrator& operator=(SmartHeapIntegrator&&) noexcept;

    /// Do nothing.
    static void Init();
    static void MemPatchProcess();

    /// `mSmartHeapEnabled`, also without the heap.
    static bool IsSmartHeapEnabled();

    /// Sets `mHookEnabled`; there is no way back.
    static void SetHookingEnabled();
    static bool GetHookingEnabled();

    /// False, with `info` untouched, without the heap or when it fails.
    static bool GetMemoryUsageInfo(MemInfo& info);

    /// Has the heap shrink its cache; its result, 0 without the heap.
    static std::size_t ShrinkSmartHeapMemoryCache(std::size_t size);

    static bool mSmartHeapEnabled;       // true; for the application to write
    static bool mHookEnabled;            // false
    static void (*mpMemHookProcess)();   // null; for the application
    static void (*mpMemPatchProcess)();  // null; for the application
};

}  // namespace ZBase
