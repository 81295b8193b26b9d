#include "tests/support/BufferProgram.h"

#include "tests/support/BufferModel.h"
#include "tests/support/Choices.h"

#include <Base/ZBase.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <vector>

namespace test {
namespace {

using ZBase::Buffer;

// Page memory that is mostly not touched, so that programs may request gigabytes. The start of each chunk is
// recorded here.
std::vector<char*> gChunkStarts;

void* TakePages(std::size_t size) {
    void* const memory = ZBase::ZNTVirtualAlloc(size, false);
    gChunkStarts.push_back(static_cast<char*>(memory));
    return memory;
}

// Settings of the process, as they are for every test.
class Settings {
public:
    Settings() { ZBase::SetCallBackVirtualAlloc(TakePages); }
    ~Settings() {
        ZBase::UnSetCallBackVirtualAlloc();
        Buffer::sGrowDanamically = true;
    }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;
};

class Program {
public:
    explicit Program(Choices& choices) : mChoices(choices) {
        mKind = static_cast<BufferKind>(choices.Below(4));
        const std::size_t blockSize = std::size_t{256} << choices.Below(6);
        const int growthBlocks = static_cast<int>(choices.Below(4)) + 1;
        const int initialBlocks = static_cast<int>(choices.Below(4));
        const unsigned int options = choices.Below(4);
        mHasBudgets = options % 2 == 0;
        const bool onBoundary = options < 2;
        mRecordsStarts = onBoundary && mKind != BufferKind::kDebug;
        const auto growth = static_cast<std::size_t>(growthBlocks);
        const bool isChosen = mKind == BufferKind::kChosen || mKind == BufferKind::kDebug;
        const bool choosesLockFree =
            Buffer::GetDefaultBufferImplementation() == Buffer::eBufferChoiceLockFree;
        mIsLockFree = mKind == BufferKind::kLockFree || (isChosen && choosesLockFree);
        if (mIsLockFree) {
            mModel = std::make_unique<LockFreeModel>(blockSize, growth, mRecordsStarts);
        } else {
            mModel = std::make_unique<SingleThreadModel>(blockSize, growth, mRecordsStarts);
        }
        gChunkStarts.clear();
        if (mHasBudgets) mGovernor = std::make_unique<RecordingGovernor>("governor", mContract.calls);
        const auto create = mKind == BufferKind::kLockFree ? ZBase::CreateBufferThreadSafe
                            : mKind == BufferKind::kDebug  ? ZBase::CreateDebugBuffer
                            : mKind == BufferKind::kSingleThread
                                ? ZBase::CreateBufferSingleThread
                                : static_cast<decltype(&ZBase::CreateDebugBuffer)>(ZBase::CreateBuffer);
        mBoundaryBefore = Buffer::GetOnBoundaryAllocTotal();
        mBuffer = mKind == BufferKind::kChosen && !mHasBudgets
                      ? ZBase::CreateBuffer(initialBlocks, growthBlocks, blockSize, onBoundary)
                      : create(initialBlocks, growthBlocks, mHasBudgets ? &mContract : nullptr, blockSize,
                               onBoundary);
        mModel->Start(static_cast<std::size_t>(initialBlocks));
    }
    ~Program() { End(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::string Run() {
        while (!mChoices.IsOver() && mModel->Total() < 4 * BufferModel::sGrowLimit) {
            const unsigned int operation = mChoices.Below(40);
            std::string difference = Step(operation);
            if (difference.empty()) difference = CompareFigures();
            if (!difference.empty()) return "operation " + std::to_string(operation) + ": " + difference;
        }
        if (mHasBudgets && *mContract.calls != mModel->Calls()) return "calls of the budgets";
        const std::size_t calls = mContract.calls->size();
        End();
        if (mCalled != Expected()) return "order of the clean-ups";
        // A debug buffer hides what the one in it owes.
        const bool owes = mHasBudgets && !mModel->detached;
        if (mContract.calls->size() != calls + (owes ? 1 : 0)) return "what the governor was told at the end";
        if (owes && mContract.calls->back() != BudgetCall("governor releases", mModel->Total()))
            return "what the governor got back";
        return mContract.references == 0 ? "" : "references of the contract";
    }

private:
    // Mostly small sizes, some as large as chunks, a few big ones.
    std::size_t PickSize() {
        const unsigned int kind = mChoices.Below(24);
        const std::size_t number = mChoices.Short();
        if (kind == 0) return number << 6;
        if (kind == 1)
            return number % 2 == 0 ? BufferModel::sGrowLimit - 16 + number % 32
                                   : number * BufferModel::sGrowLimit >> 18;
        if (kind == 2) return std::numeric_limits<std::size_t>::max() - number % 4096;
        return kind < 6 ? number : number % 2000;
    }

    std::string Step(unsigned int operation) {
        switch (operation) {
            case 0:
                return Refuse(static_cast<Refusal>(mChoices.Below(3)));
            case 1:
                return Refuse(Refusal::kNone);
            case 2:
                return Limit();
            case 3:
                Buffer::sGrowDanamically = mModel->grows = mChoices.Below(4) != 0;
                return {};
            case 4:
                return mChoices.Below(8) == 0 ? Detach() : "";
            case 5:
                return mChoices.Below(16) == 0 ? Lock() : "";
            case 6:
                mModel->growthLimit = mChoices.Below(4) == 0 ? 0 : PickSize();
                return ZBase::LimitGrowth(mBuffer, mModel->growthLimit) ? "" : "LimitGrowth";
            case 7:
                return AddCleanup();
            case 8:
                return AllocateAligned(std::size_t{1} << mChoices.Below(14));
            case 9:
            case 10:
            case 11:
            case 12: {
                const std::size_t size = PickSize();
                return IsTooMuch(size) || mBuffer->EnsureAvailable(size) == mModel->EnsureAvailable(size)
                           ? ""
                           : "EnsureAvailable(" + std::to_string(size) + ")";
            }
            default:
                return Allocate(PickSize(), operation % 4);
        }
    }

    // No memory can have it, and the model counts no such sizes.
    static bool IsTooMuch(std::size_t size) { return size > std::numeric_limits<std::size_t>::max() / 2; }

    template <class Take>
    static char* Taken(Take take) {
        try {
            return static_cast<char*>(take());
        } catch (const ZBase::Message&) {
        } catch (const std::bad_alloc&) {
        }
        return nullptr;
    }

    std::string Allocate(std::size_t size, unsigned int way) {
        const auto take = [&]() -> void* {
            switch (way) {
                case 0:
                    return ::operator new(size, mBuffer);
                case 1:
                    return ::operator new[](size, mBuffer);
                default:
                    return mBuffer->Allocate(size);
            }
        };
        if (IsTooMuch(size)) return Taken(take) == nullptr ? "" : "more memory than there is";
        const std::optional<ModelPiece> expected = mModel->Allocate(size);
        return ComparePiece(Taken(take), expected, size);
    }

    // The piece is larger by what the alignment may cost, at most.
    std::string AllocateAligned(std::size_t alignment) {
        const std::size_t size = mChoices.Below(256);
        const bool pads = alignment > 8;
        const std::size_t taken = pads ? std::max<std::size_t>(size, 1) + alignment - 8 : size;
        const std::optional<ModelPiece> expected = mModel->Allocate(taken);
        ZBase::BufferResource resource(mBuffer);
        if (resource.GetBuffer() != mBuffer || resource != ZBase::BufferResource(mBuffer))
            return "BufferResource";
        const bool byResource = mChoices.Flag();
        char* const piece = Taken([&] {
            if (byResource) return resource.allocate(size, alignment);
            return size % 2 == 0 ? ::operator new(size, std::align_val_t{alignment}, mBuffer)
                                 : ::operator new[](size, std::align_val_t{alignment}, mBuffer);
        });
        if ((piece != nullptr) != expected.has_value()) return "whether there is an aligned piece";
        if (piece == nullptr) return {};
        if (reinterpret_cast<std::uintptr_t>(piece) % alignment != 0) return "alignment";
        if (!mModel->locked) std::memset(piece, 0x5A, size);
        char* const base = BaseOf(*expected);
        if (base == nullptr) return {};
        const auto offset = static_cast<std::size_t>(piece - base);
        return offset >= expected->offset && offset + size <= expected->offset + taken
                   ? ""
                   : "place of an aligned piece";
    }

    // The chunk's start, if it is known.
    char* BaseOf(const ModelPiece& piece) {
        if (mRecordsStarts) return piece.chunk < gChunkStarts.size() ? gChunkStarts[piece.chunk] : nullptr;
        const auto found = mBases.find(piece.chunk);
        return found == mBases.end() ? nullptr : found->second;
    }

    std::string ComparePiece(char* piece, const std::optional<ModelPiece>& expected, std::size_t size) {
        if ((piece != nullptr) != expected.has_value())
            return "whether there are " + std::to_string(size) + " bytes";
        if (piece == nullptr) return {};
        if (!mRecordsStarts) mBases.try_emplace(expected->chunk, piece - expected->offset);
        if (piece != BaseOf(*expected) + expected->offset)
            return "place of " + std::to_string(size) + " bytes";
        // Both ends are the caller's. Large pieces are not touched in between.
        std::memset(piece, 0x5A, std::min<std::size_t>(size, 4096));
        if (size != 0) piece[size - 1] = 0x5A;
        return {};
    }

    std::string Refuse(Refusal refusal) {
        if (!mHasBudgets) return {};
        mModel->refusal = refusal;
        mContract.chunkCode = refusal == Refusal::kContract ? 8 : 0;
        mGovernor->refuses = refusal == Refusal::kGovernor;
        return {};
    }

    std::string Limit() {
        const unsigned int kind = mChoices.Below(6);
        mModel->limit = kind < 3 ? mModel->Total() + kind - std::min<std::size_t>(mModel->Total(), 1) : 0;
        mBuffer->SetLimit(kind == 3 ? -5 : static_cast<std::int64_t>(mModel->limit));
        return {};
    }

    std::string Detach() {
        const std::size_t before = mContract.calls->size();
        const bool forwards = mKind != BufferKind::kDebug;
        const bool credits = forwards && mHasBudgets && !mModel->detached;
        mBuffer->DetachFromGovernors();
        if (forwards) mModel->detached = true;
        if (mContract.calls->size() != before + (credits ? 1 : 0)) return "calls of a detachment";
        if (!credits) return {};
        if (mContract.calls->back() != BudgetCall("governor releases", mModel->Total()))
            return "credit of a detachment";
        mContract.calls->pop_back();
        return {};
    }

    std::string Lock() {
        mModel->locked = true;
        mBuffer->Lock();
        return {};
    }

    struct Registered {
        Program* program;
        int number;
    };

    std::string AddCleanup() {
        const bool expected = mModel->AddCleanup();
        mRegistered.push_back(std::make_unique<Registered>(Registered{this, mAccepted}));
        bool taken = true;
        try {
            mBuffer->AddCleanup(
                [](void* argument) {
                    const auto* registered = static_cast<Registered*>(argument);
                    registered->program->mCalled.push_back(registered->number);
                },
                mRegistered.back().get());
        } catch (const ZBase::Message&) {
            taken = false;
        }
        mAccepted += taken ? 1 : 0;
        return taken == expected ? "" : "AddCleanup";
    }

    // The oldest first, on a lock-free buffer the newest.
    std::vector<int> Expected() const {
        std::vector<int> expected;
        for (int i = 0; i != mAccepted; ++i) expected.push_back(i);
        if (mIsLockFree) std::reverse(expected.begin(), expected.end());
        return expected;
    }

    std::string CompareFigures() const {
        if (mBuffer->GetTotalBytes() != mModel->Total()) return "GetTotalBytes";
        if (mBuffer->GetUsedBytes() != mModel->Used()) return "GetUsedBytes";
        if (mBuffer->GetTotalKB() != mModel->Total() / 1024) return "GetTotalKB";
        if (mBuffer->GetUsedKB() != mModel->Used() / 1024) return "GetUsedKB";
        const std::size_t onBoundary = Buffer::GetOnBoundaryAllocTotal() - mBoundaryBefore;
        if (onBoundary != (mRecordsStarts ? mModel->Total() : 0)) return "GetOnBoundaryAllocTotal";
        const bool isDetached = mKind == BufferKind::kDebug || mModel->detached;
        return mBuffer->IsDetachedFromGovernors() == isDetached ? "" : "IsDetachedFromGovernors";
    }

    void End() {
        if (mBuffer != nullptr) mBuffer->Delete();
        mBuffer = nullptr;
    }

    Choices& mChoices;
    Settings mSettings;
    BufferKind mKind;
    bool mIsLockFree;
    bool mHasBudgets;
    bool mRecordsStarts;  // of its chunks
    RecordingContract mContract;
    std::unique_ptr<RecordingGovernor> mGovernor;
    std::unique_ptr<BufferModel> mModel;
    std::map<std::size_t, char*> mBases;  // of chunks of the heap, by the first piece of each
    std::vector<std::unique_ptr<Registered>> mRegistered;
    int mAccepted = 0;
    std::vector<int> mCalled;
    std::size_t mBoundaryBefore = 0;
    Buffer* mBuffer = nullptr;  // owned
};

}  // namespace

std::string RunBufferProgram(const std::uint8_t* bytes, std::size_t size) {
    Choices choices(bytes, size);
    return Program(choices).Run();
}

}  // namespace test
