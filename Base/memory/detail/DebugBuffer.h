#pragma once

#include <Base/memory/Buffer.h>

#include <cstddef>
#include <list>

namespace ZBase {

class CallStack;
class MemoryContract;

/// Wraps a buffer to catch its use after its end. In debugging mode a deleted one keeps its addresses without
/// memory, and each later call reports where it was created and deleted before it goes on and faults. Nothing
/// turns the mode on.
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
    /// Meant: neither reaches the inner buffer.
    void DetachFromGovernors() override {}
    bool IsDetachedFromGovernors() override { return true; }

    /// As the function of that name has it, for the inner buffer.
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

/// The deleted buffers of debugging mode, which are destroyed with it. Without a lock.
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
