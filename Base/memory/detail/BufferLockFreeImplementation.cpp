#include <Base/memory/detail/BufferLockFreeImplementation.h>

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/detail/MemoryFailures.h>
#include <Base/memory/detail/Poison.h>
#include <Base/platform/os/processes/Threads.h>

#include <algorithm>
#include <new>

namespace ZBase {

namespace {

constexpr int kTriesOfAWait = 100;

}  // namespace

Buffer* CreateBufferThreadSafe(int initialBlocks, int growthBlocks, MemoryContract* contract,
                               std::size_t blockSize, bool onBoundary) {
    const auto room = BufferBase::RoomForFirstChunk(initialBlocks, contract, blockSize, onBoundary);
    return new (room)
        BufferLockFreeImplementation(initialBlocks, growthBlocks, contract, blockSize, onBoundary, room);
}

BufferLockFreeImplementation::BufferLockFreeImplementation(int initialBlocks, int growthBlocks,
                                                           MemoryContract* contract, std::size_t blockSize,
                                                           bool onBoundary, Room room)
    : BufferBase(blockSize, onBoundary, contract),
      mGrowthBlocks(static_cast<std::size_t>(std::max(growthBlocks, 1))) {
    if (initialBlocks < 1) return;
    mSlots.PublishFirst(room.size != 0
                            ? AdoptRoom(this + 1, room)
                            : AcquireChunk(BytesOfBlocks(static_cast<std::size_t>(initialBlocks))));
}

BufferLockFreeImplementation::~BufferLockFreeImplementation() noexcept(false) {
    try {
        // From the head each time: a clean-up may register another one, which is then the newest.
        while (const CleanupNode* const node = mCleanups) {
            mCleanups = node->next;
            MakeWritable([this](auto visit) { ForEachChunk(visit); });
            node->function(node->argument);
        }
    } catch (...) {
        ReleaseChunks();
        throw;
    }
    ReleaseChunks();
}

void BufferLockFreeImplementation::ReleaseChunks() {
    ForEachChunk([this](const Chunk& chunk) { ReleaseChunk(chunk); });
}

// Big allocations first: their nodes are in the other chunks.
template <class Visit>
void BufferLockFreeImplementation::ForEachChunk(Visit visit) {
    for (const BigAllocation* node = mBigAllocations.load(std::memory_order_acquire); node != nullptr;
         node = node->next)
        visit(node->chunk);
    mSlots.ForEach([&visit](const Slot& slot) { visit(slot.GetChunk()); });
}

// Nodes are the only memory of a buffer that the library itself writes to, so `Lock` waits for their writers.
// No budget is called in between, so that wait is for a few stores.
template <class Node>
bool BufferLockFreeImplementation::Push(std::atomic<Node*>& head, void* memory, const Node& content) {
    if (!mNodeWriters.Enter()) return false;
    Unpoison(memory, sizeof(Node));
    Node* const node = new (memory) Node(content);
    node->next = head.load(std::memory_order_relaxed);
    while (!head.compare_exchange_weak(node->next, node, std::memory_order_release)) {
    }
    mNodeWriters.Leave();
    return true;
}

void BufferLockFreeImplementation::StopNodeWriters() {
    mNodeWriters.Close();
    for (int tries = 0; !mNodeWriters.IsEmpty(); ++tries) {
        // The writer may have a lower priority than a thread that only yields.
        if (tries < kTriesOfAWait) {
            os::YieldThread();
        } else {
            os::SleepMilliseconds(1);
        }
    }
}

// The fast path makes no calls, so it needs no stack frame.
void* BufferLockFreeImplementation::Allocate(std::size_t size) {
    const std::size_t pieceSize = PieceSize(size);
    // A piece size of 0, for sizes that can't be rounded, wraps and exceeds any limit. Refused there like any
    // piece of a locked buffer.
    if (IsLocked() || pieceSize - 1 >= sGrowLimitBytes - 1) [[unlikely]]
        return AllocateBig(pieceSize);
    char* const piece = mSlots.TakeOfActive(pieceSize);
    if (piece == nullptr) [[unlikely]]
        return AllocateBehind(pieceSize);
    Unpoison(piece, pieceSize);
    return piece;
}

void* BufferLockFreeImplementation::AllocateBehind(std::size_t size) {
    char* const piece = AllocatePiece(size);
    Unpoison(piece, size);
    return piece;
}

char* BufferLockFreeImplementation::AllocatePiece(std::size_t size) {
    char* const piece = mSlots.Take(size);
    return piece != nullptr ? piece : AllocateInNewChunk(size);
}

char* BufferLockFreeImplementation::AllocateInNewChunk(std::size_t size) {
    const Chunk chunk = AcquireChunk(NewChunkSize(size));
    // The first piece is the caller's before other threads see the chunk.
    Publish(chunk, size);
    return chunk.start;
}

void BufferLockFreeImplementation::Publish(const Chunk& chunk, std::size_t used) {
    try {
        mSlots.Claim().Publish(chunk, used);
    } catch (const std::bad_alloc&) {
        ReleaseChunk(chunk);
        throw;
    }
}

void* BufferLockFreeImplementation::AllocateBig(std::size_t size) {
    if (IsLocked()) ThrowLocked();
    if (size == 0 || size > kLargestChunk) throw BadAllocation();
    // If the chunk can't be acquired the node stays unused. The node itself is never a big allocation.
    char* const node = AllocatePiece(sizeof(BigAllocation));
    const Chunk chunk = AcquireChunk(size);
    // If the buffer was locked meanwhile, the node can't be written; a slot can.
    if (!Push(mBigAllocations, node, {chunk})) Publish(chunk, chunk.Size());
    Unpoison(chunk.start, size);
    return chunk.start;
}

std::size_t BufferLockFreeImplementation::ChunkSize(std::size_t growthBlocks, std::size_t size) const {
    return BytesOfBlocks(std::max(growthBlocks, BlocksOfBytes(size)));
}

std::size_t BufferLockFreeImplementation::NewChunkSize(std::size_t size) {
    std::size_t growth = mGrowthBlocks;
    const std::size_t chunkSize = ChunkSize(growth, size);
    const std::size_t next = NextGrowth(growth, chunkSize);
    // If this fails, another thread has just grown it.
    if (next != growth) mGrowthBlocks.compare_exchange_strong(growth, next);
    return chunkSize;
}

bool BufferLockFreeImplementation::EnsureAvailable(std::size_t size) {
    return IsGranted([&] {
        if (IsLocked()) return false;
        const std::size_t pieceSize = PieceSize(size);
        if (pieceSize == 0) return false;
        if (!mSlots.HasRoom(pieceSize)) MakeRoom(pieceSize);
        return true;
    });
}

void BufferLockFreeImplementation::MakeRoom(std::size_t size) {
    ChunkSize(mGrowthBlocks, size);  // throws before an index is spent
    // The index is claimed before the chunk is acquired, so no two threads fill one slot; a refused chunk
    // leaves its slot empty.
    const Slot slot = mSlots.Claim();
    try {
        slot.Publish(AcquireChunk(NewChunkSize(size)), 0);
    } catch (...) {
        slot.GiveUp();
        throw;
    }
}

std::size_t BufferLockFreeImplementation::GetUsedBytes() {
    std::size_t used = 0;
    mSlots.ForEach([&used](const Slot& slot) { used += slot.Used(); });
    for (const BigAllocation* node = mBigAllocations.load(std::memory_order_acquire); node != nullptr;
         node = node->next)
        used += node->chunk.Size();
    return used;
}

void BufferLockFreeImplementation::Lock() {
    // First, so that allocation stops at once; it stays set when memory can't be protected.
    SetLocked();
    StopNodeWriters();
    for (const BigAllocation* node = mBigAllocations.load(std::memory_order_acquire); node != nullptr;
         node = node->next)
        if (!ProtectChunk(node->chunk)) ThrowBufferException("Unable to lock buffer (big allocation)"_w);
    mSlots.ForEach([this](const Slot& slot) {
        if (!ProtectChunk(slot.GetChunk())) ThrowBufferException("Unable to lock buffer (slot)"_w);
    });
}

void BufferLockFreeImplementation::AddCleanup(void (*function)(void*), void* argument) {
    void* const node = ::operator new(sizeof(CleanupNode), static_cast<Buffer*>(this));
    if (!Push(mCleanups, node, {function, argument})) ThrowLocked();
}

}  // namespace ZBase
