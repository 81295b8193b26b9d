#pragma once

#include <Base/ZBase.h>

#include <atomic>
#include <cstddef>

/// A ceiling on what all buffers of the process hold together. Used by any number of threads. It is
/// registered as long as it lives; make it before the first buffer and destroy it after the last.
class ProcessCeiling {
public:
    explicit ProcessCeiling(std::size_t bytes);
    ~ProcessCeiling();
    ProcessCeiling(const ProcessCeiling&) = delete;
    ProcessCeiling& operator=(const ProcessCeiling&) = delete;

    std::size_t Held() const { return mHeld; }  // bytes
    std::size_t Refusals() const { return mRefusals; }

private:
    bool Book(std::size_t bytes);

    const std::size_t mCeiling;
    std::atomic<std::size_t> mHeld{0};
    std::atomic<std::size_t> mRefusals{0};
    ZBase::MemGovernorProxy mProxy;
};
