#pragma once

#include <Base/frame/Api.h>
#include <Base/memory/MemGovernorProxy.h>

#include <atomic>
#include <cstddef>

namespace ZBase {

/// A ceiling on what all buffers of the process hold together: a governor that is registered as long as it
/// lives. Any thread may use it. Make it before the first buffer and destroy it after the last, as the
/// registration of a governor requires.
class ZBASE_API MemoryCeiling {
public:
    /// Throws `std::bad_alloc`.
    explicit MemoryCeiling(std::size_t bytes);
    ~MemoryCeiling();
    MemoryCeiling(const MemoryCeiling&) = delete;
    MemoryCeiling& operator=(const MemoryCeiling&) = delete;

    std::size_t GetCeiling() const { return mCeiling; }  // bytes

    /// Bytes that the buffers hold. A chunk that was granted here but not acquired, because another governor
    /// refused or there was no memory, stays booked.
    std::size_t GetHeld() const { return mHeld; }

    /// How many chunks were refused.
    std::size_t GetRefusals() const { return mRefusals; }

private:
    bool Ask(std::size_t bytes);
    WideString TellRefusal(std::size_t bytes) const;

    const std::size_t mCeiling;
    std::atomic<std::size_t> mHeld{0};
    std::atomic<std::size_t> mRefusals{0};
    MemGovernorProxy mProxy;
};

}  // namespace ZBase
