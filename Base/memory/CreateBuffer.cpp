#include <Base/memory/CreateBuffer.h>

#include <Base/frame/WideLiteral.h>
#include <Base/memory/Buffer.h>
#include <Base/switches/FeatureFlagMgr.h>

#include <atomic>

namespace ZBase {

namespace {

// Every thread that decides writes the same value, so no compare-and-swap is needed.
std::atomic<Buffer::EBufferChoice> sBufferChoice{Buffer::eBufferChoiceUndecided};

}  // namespace

Buffer::EBufferChoice Buffer::GetDefaultBufferImplementation() {
    EBufferChoice choice = sBufferChoice.load(std::memory_order_relaxed);
    if (choice == eBufferChoiceUndecided && IsFeatureFlagManagerInitialized()) {
        choice = IsFeatureEnabled("Base/UseLockFreeBuffer"_w) ? eBufferChoiceLockFree
                                                              : eBufferChoiceImplementation;
        sBufferChoice.store(choice, std::memory_order_relaxed);
    }
    return choice;
}

Buffer* CreateBuffer(int initialBlocks, int growthBlocks, MemoryContract* contract, std::size_t blockSize,
                     bool onBoundary) {
    const auto create = Buffer::GetDefaultBufferImplementation() == Buffer::eBufferChoiceLockFree
                            ? CreateBufferThreadSafe
                            : CreateBufferSingleThread;
    return create(initialBlocks, growthBlocks, contract, blockSize, onBoundary);
}

Buffer* CreateBuffer(int initialBlocks, int growthBlocks, std::size_t blockSize, bool onBoundary) {
    return CreateBuffer(initialBlocks, growthBlocks, nullptr, blockSize, onBoundary);
}

}  // namespace ZBase
