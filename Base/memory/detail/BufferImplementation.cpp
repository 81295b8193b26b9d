#include <Base/memory/detail/BufferImplementation.h>

#include <Base/frame/Environment.h>
#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/VirtualMemory.h>
#include <Base/memory/detail/MemoryFailures.h>
#include <Base/memory/detail/Poison.h>
#include <Base/platform/os/Threads.h>

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

// Off the path of the allocations, so that they stay short.
[[gnu::noinline]] void ReportOverlap() {
    if (WideString(ReadEnvironmentVariable("ZENT_BUFERROR_ABORT"_w).c_str()) == "NO"_w) {
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
    return new BufferImplementation(initialBlocks, growthBlocks, contract, blockSize, onBoundary);
}

// The one atomic exchange of an allocation. Meant: the thread that is inside is not asked for its name, so a
// thread that comes back from within counts too, and of two calls that were tolerated the first to leave
// clears the way for the others.
class BufferImplementation::Entry {
public:
    explicit Entry(BufferImplementation& buffer) : mBuffer(buffer) {
        unsigned int nobody = 0;
        const auto thread = static_cast<unsigned int>(os::RememberedThreadId());
        if (!mBuffer.mActiveThread.compare_exchange_strong(nobody, thread, std::memory_order_acquire))
            ReportOverlap();
    }
    ~Entry() { mBuffer.mActiveThread.store(0, std::memory_order_release); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

private:
    BufferImplementation& mBuffer;
};

BufferImplementation::BufferImplementation(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                           std::size_t blockSize, bool onBoundary)
    : BufferBase(blockSize, onBoundary, contract),
      mChunks(ContractManagerAllocator<Chunk>(contract)),
      mGrowthBlocks(static_cast<std::size_t>(std::max(growthBlocks, 1))) {
    if (initialBlocks < 1) return;
    const std::size_t size = BytesOfBlocks(static_cast<std::size_t>(initialBlocks));
    Chunk& chunk = mChunks.emplace_back();
    chunk = AcquireChunk(size);
    mCurrentPos = chunk.start;
    mCurrentEnd = chunk.end;
}

BufferImplementation::~BufferImplementation() noexcept(false) {
    try {
        // By index and copy: a clean-up may register another one, which moves the row.
        for (std::size_t i = 0; i != mCleanups.size(); ++i) {
            const Cleanup cleanup = mCleanups[i];
            cleanup.function(cleanup.argument);
        }
    } catch (...) {
        ReleaseChunks();
        throw;
    }
    ReleaseChunks();
}

void BufferImplementation::ReleaseChunks() {
    for (const Chunk& chunk : mChunks) ReleaseChunk(chunk);
}

void* BufferImplementation::Allocate(std::size_t size) {
    const Entry entry(*this);
    if (IsLocked()) ThrowLocked();
    const std::size_t pieceSize = PieceSize(size);
    // A size of 0 is one that has no rounded size; here it is larger than any room.
    if (pieceSize - 1 >= static_cast<std::size_t>(mCurrentEnd - mCurrentPos)) MakeRoom(pieceSize);
    char* const piece = mCurrentPos;
    mCurrentPos += pieceSize;
    mUsedBytes += pieceSize;
    Unpoison(piece, pieceSize);
    return piece;
}

bool BufferImplementation::EnsureAvailable(std::size_t size) {
    try {
        const Entry entry(*this);
        if (IsLocked()) return false;
        const std::size_t pieceSize = PieceSize(size);
        if (pieceSize - 1 >= static_cast<std::size_t>(mCurrentEnd - mCurrentPos)) MakeRoom(pieceSize);
        return true;
    } catch (const std::bad_alloc&) {
    } catch (const ExceptionImpl<BufferException>&) {
    } catch (const ExceptionImpl<ContractManagerAllocException>&) {
    } catch (const MemGoverningException&) {
    }
    return false;
}

void BufferImplementation::MakeRoom(std::size_t size) {
    if (size == 0) throw BadAllocation();
    const std::size_t blocks = std::max(mGrowthBlocks, BlocksOfBytes(size));
    const std::size_t chunkSize = BytesOfBlocks(blocks);
    // A chunk that does not come leaves its entry empty.
    const std::size_t index = mChunks.size();
    mChunks.emplace_back();
    const Chunk chunk = AcquireChunk(chunkSize);
    mChunks[index] = chunk;
    mCurrentPos = chunk.start;
    mCurrentEnd = chunk.end;
    mGrowthBlocks = NextGrowth(mGrowthBlocks, chunkSize);
}

void BufferImplementation::Lock() {
    // Meant: empty entries are passed on as well.
    for (const Chunk& chunk : mChunks)
        if (!ProtectChunk(chunk)) ThrowBufferException("Unable to lock buffer"_w);
    SetLocked();
}

void BufferImplementation::AddCleanup(void (*function)(void*), void* argument) {
    mCleanups.push_back({function, argument});
}

void BufferImplementation::DeCommitChunk() {
    for (const Chunk& chunk : mChunks)
        if (!ZNTDeCommit(chunk.start, chunk.Size())) ThrowBufferException("DeCommitChunk error"_w);
}

}  // namespace ZBase
