#include <Base/memory/detail/BufferImplementation.h>

#include <Base/frame/Environment.h>
#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/VirtualMemory.h>
#include <Base/memory/detail/MemoryFailures.h>
#include <Base/memory/detail/Poison.h>
#include <Base/platform/os/processes/Threads.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace ZBase {

namespace {

void Say(const char* line) {
    std::fputs(line, stdout);
    std::fflush(stdout);
}

// Without a heap there is nothing to read it into.
bool IsOverlapTolerated() {
    try {
        return WideString(ReadEnvironmentVariable("ZENT_BUFERROR_ABORT"_w).c_str()) == "NO"_w;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Separate from the allocations, so that they stay short.
[[gnu::noinline]] void ReportOverlap() {
    if (IsOverlapTolerated()) {
        Say("Detect multithreading issue in BufferImplementation.\n");
        return;
    }
    Say("Server crash because multithreading issue in BufferImplementation is detected, please send the core "
        "file to tech support.\n");
    std::abort();
}

}  // namespace

Buffer* CreateBufferSingleThread(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                 std::size_t blockSize, bool onBoundary) {
    const auto room = BufferBase::RoomForFirstChunk(initialBlocks, contract, blockSize, onBoundary);
    return new (room)
        BufferImplementation(initialBlocks, growthBlocks, contract, blockSize, onBoundary, room);
}

// The detector: one compare-and-swap for each allocation. Ids are not compared, which would be another
// branch, so a nested call of the same thread counts too. Of two tolerated calls the first to leave marks the
// buffer as free.
inline bool BufferImplementation::TryEnter(unsigned long thread) {
    unsigned int nobody = 0;
    return mActiveThread.compare_exchange_strong(nobody, static_cast<unsigned int>(thread),
                                                 std::memory_order_acquire);
}

inline void BufferImplementation::Enter() {
    if (!TryEnter(os::RememberedThreadId())) ReportOverlap();
}

inline void BufferImplementation::Leave() {
    mActiveThread.store(0, std::memory_order_release);
}

class BufferImplementation::Leaving {
public:
    explicit Leaving(BufferImplementation& buffer) : mBuffer(buffer) {}
    ~Leaving() { mBuffer.Leave(); }
    Leaving(const Leaving&) = delete;
    Leaving& operator=(const Leaving&) = delete;

private:
    BufferImplementation& mBuffer;
};

BufferImplementation::BufferImplementation(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                           std::size_t blockSize, bool onBoundary, Room room)
    : BufferBase(blockSize, onBoundary, contract),
      mChunks(ContractManagerAllocator<Chunk>(contract)),
      mGrowthBlocks(static_cast<std::size_t>(std::max(growthBlocks, 1))) {
    if (initialBlocks < 1) return;
    if (room.size != 0) {
        Fill(AdoptRoom(this + 1, room));
        return;
    }
    const std::size_t size = BytesOfBlocks(static_cast<std::size_t>(initialBlocks));
    Chunk& chunk = mChunks.emplace_back();
    chunk = AcquireChunk(size);
    Fill(chunk);
}

BufferImplementation::~BufferImplementation() noexcept(false) {
    try {
        // By index and copy: a clean-up may register another one, which may reallocate the vector.
        for (std::size_t i = 0; i != mCleanups.size(); ++i) {
            const Cleanup cleanup = mCleanups[i];
            MakeWritable([this](auto visit) { ForEachChunk(visit); });
            cleanup.function(cleanup.argument);
        }
    } catch (...) {
        ReleaseChunks();
        throw;
    }
    ReleaseChunks();
}

template <class Visit>
void BufferImplementation::ForEachChunk(Visit visit) const {
    if (AdoptedChunk().start != nullptr) visit(AdoptedChunk());
    for (const Chunk& chunk : mChunks) visit(chunk);
}

void BufferImplementation::ReleaseChunks() {
    ForEachChunk([this](const Chunk& chunk) { ReleaseChunk(chunk); });
}

void BufferImplementation::Fill(const Chunk& chunk) {
    mUsedBefore += UsedOfCurrent();
    mCurrentStart = chunk.start;
    mCurrentPos = chunk.start;
    mCurrentEnd = chunk.end;
}

inline void* BufferImplementation::Take(std::size_t pieceSize) {
    char* const piece = mCurrentPos;
    mCurrentPos += pieceSize;
    Unpoison(piece, pieceSize);
    return piece;
}

// The fast path makes no calls, so it needs no stack frame.
void* BufferImplementation::Allocate(std::size_t size) {
    const unsigned long thread = os::AlreadyRememberedThreadId();
    if (thread == 0) [[unlikely]]
        return AllocateFirst(size);
    if (!TryEnter(thread)) [[unlikely]]
        return AllocateOverlapping(size);
    const std::size_t pieceSize = PieceSize(size);
    if (IsLocked() || !Fits(pieceSize)) [[unlikely]]
        return AllocateInside(size);
    void* const piece = Take(pieceSize);
    Leave();
    return piece;
}

void* BufferImplementation::AllocateFirst(std::size_t size) {
    Enter();
    return AllocateInside(size);
}

void* BufferImplementation::AllocateOverlapping(std::size_t size) {
    ReportOverlap();
    return AllocateInside(size);
}

void* BufferImplementation::AllocateInside(std::size_t size) {
    const Leaving leaving(*this);
    if (IsLocked()) ThrowLocked();
    const std::size_t pieceSize = PieceSize(size);
    if (!Fits(pieceSize)) MakeRoom(pieceSize);
    return Take(pieceSize);
}

bool BufferImplementation::EnsureAvailable(std::size_t size) {
    return IsGranted([&] {
        Enter();
        const Leaving leaving(*this);
        if (IsLocked()) return false;
        const std::size_t pieceSize = PieceSize(size);
        if (!Fits(pieceSize)) MakeRoom(pieceSize);
        return true;
    });
}

void BufferImplementation::MakeRoom(std::size_t size) {
    if (size == 0) throw BadAllocation();
    const std::size_t blocks = std::max(mGrowthBlocks, BlocksOfBytes(size));
    const std::size_t chunkSize = BytesOfBlocks(blocks);
    // A chunk that can't be acquired leaves its entry empty.
    const std::size_t index = mChunks.size();
    mChunks.emplace_back();
    const Chunk chunk = AcquireChunk(chunkSize);
    mChunks[index] = chunk;
    Fill(chunk);
    mGrowthBlocks = NextGrowth(mGrowthBlocks, chunkSize);
}

void BufferImplementation::Lock() {
    // Empty entries are passed on too: protecting an empty range succeeds.
    ForEachChunk([this](const Chunk& chunk) {
        if (!ProtectChunk(chunk)) ThrowBufferException("Unable to lock buffer"_w);
    });
    SetLocked();
}

void BufferImplementation::AddCleanup(void (*function)(void*), void* argument) {
    mCleanups.push_back({function, argument});
}

void BufferImplementation::DeCommitChunk() {
    ForEachChunk([](const Chunk& chunk) {
        if (!ZNTDeCommit(chunk.start, chunk.Size())) ThrowBufferException("DeCommitChunk error"_w);
    });
}

}  // namespace ZBase
