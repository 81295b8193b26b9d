#pragma once

#include <Base/memory/Buffer.h>

namespace test {

/// A buffer on the test's stack that does nothing; a derived class supplies the pieces.
class StandInBuffer : public ZBase::Buffer {
public:
    ~StandInBuffer() override = default;
    void Delete() override {}
    bool EnsureAvailable(std::size_t) override { return true; }
    std::size_t GetTotalKB() override { return 0; }
    std::size_t GetUsedKB() override { return 0; }
    std::size_t GetTotalBytes() override { return 0; }
    std::size_t GetUsedBytes() override { return 0; }
    void Lock() override {}
    void SetLimit(std::int64_t) override {}
    void AddCleanup(void (*)(void*), void*) override {}
    void DetachFromGovernors() override {}
    bool IsDetachedFromGovernors() override { return false; }
};

}  // namespace test
