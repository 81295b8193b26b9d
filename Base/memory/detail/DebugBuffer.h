#pragma once

#include <Base/memory/Buffer.h>

#include <cstddef>
#include <list>

namespace ZBase {

class CallStack;
class MemoryContract;

/// Wraps a buffer to detect its use after its end. In debugging mode a deleted buffer keeps its addresses
/// without memory, and each later call reports where it was created and deleted before it continues and
/// faults. Nothing turns the mode on.
class DebugBuffer : public Buffer {
public:
    DebugBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract, std::size_t blockSize,
                bool onBoundary);
    ~DebugBuffer() noexcept(false) override;
    DebugBuffer(const DebugBuffer&) = delete;
    DebugBuffer& operator=(const DebugBuffer&) = delete;

    void Delete() override;
    bool EnsureAvailable(std::size_t size) override;
    void* Allocate(std::size_t size) override;
    std::size_t GetTotalKB() override;
    std::size_t GetUsedKB() override;
    std::size_t GetTotalBytes() override;
    std::size_t GetUsedBytes() override;
    void Lock() override;
    void SetLimit(std::int64_t limit) override;
    void AddCleanup(void (*function)(void*), void* argument) override;
    /// Neither reaches the inner buffer; kept for callers that rely on it.
    void DetachFromGovernors() override {}
    bool IsDetachedFromGovernors() override { return true; }

    /// `ZBase::LimitGrowth` for the inner buffer.
    bool LimitGrowth(std::size_t chunkBytes);

protected:
    bool mDeleted = false;
    bool mDebugMode = false;
    CallStack* mCreationStack = nullptr;  // owned; null outside of debugging mode
    CallStack* mDeletionStack = nullptr;  // owned

private:
    Buffer& Checked();
    void Report();

    Buffer* mBuffer = nullptr;  // owned
};

/// The deleted buffers of debugging mode, destroyed with it. Not locked.
class DebugBufferList {
public:
    DebugBufferList() = default;
    ~DebugBufferList();
    DebugBufferList(const DebugBufferList&) = delete;
    DebugBufferList& operator=(const DebugBufferList&) = delete;

    void Append(DebugBuffer* buffer) { mBuffers.push_back(buffer); }
    bool IsEmpty() const { return mBuffers.empty(); }

private:
    std::list<DebugBuffer*> mBuffers;
};

extern DebugBufferList gDebugBufferList;

}  // namespace ZBase
