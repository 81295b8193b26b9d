#include "GovernedReading.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <memory>
#include <thread>

#include "OpenFile.h"

namespace {

using namespace ZBase::Literals;

/// The pieces of a file, taken by the next free thread.
class Pieces {
public:
    Pieces(const OpenFile& file, ZBase::Buffer& buffer, std::size_t pieceSize)
        : mFile(file),
          mBuffer(buffer),
          mPieceSize(pieceSize),
          mPieces((file.Size() + pieceSize - 1) / pieceSize) {}

    void ReadAll(unsigned int threads) {
        // They begin together. A latch of the standard library loses a wake-up where it has no futex.
        std::atomic<unsigned int> missing{threads};
        std::vector<std::thread> readers;
        for (unsigned int i = 0; i != threads; ++i) {
            readers.emplace_back([this, &missing] {
                --missing;
                while (missing != 0) std::this_thread::yield();
                ReadUntilDone();
            });
        }
        for (std::thread& reader : readers) reader.join();
        if (mFailure != nullptr) std::rethrow_exception(mFailure);
    }

    GovernedText Join() const {
        GovernedText joined{{}, mPieces.size()};
        for (const std::string_view piece : mPieces) joined.text += piece;
        return joined;
    }

private:
    void ReadUntilDone() {
        try {
            for (std::size_t index = mNext++; index < mPieces.size() && !mStopped; index = mNext++) {
                char* const place = ZBase::New<char[]>(&mBuffer, mPieceSize);
                mPieces[index] = {place, mFile.ReadAt(index * mPieceSize, place, mPieceSize)};
            }
        } catch (...) {
            if (!mStopped.exchange(true)) mFailure = std::current_exception();
        }
    }

    const OpenFile& mFile;
    ZBase::Buffer& mBuffer;
    std::size_t mPieceSize;
    std::vector<std::string_view> mPieces;
    std::atomic<std::size_t> mNext{0};
    std::atomic<bool> mStopped{false};
    std::exception_ptr mFailure;
};

}  // namespace

class Budget::Purse : public ZBase::MemoryContract, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    Purse(Budget& budget, std::size_t bytes) : mBudget(budget), mSum(ZBase::MemoryBudget::Create(bytes)) {}

    unsigned int Request(unsigned int bytes) override { return mSum->Request(bytes); }
    void Settle(unsigned int bytes) override { mSum->Settle(bytes); }

    unsigned int RequestChunk(std::size_t bytes, bool) override {
        const std::lock_guard lock(mBudget.mLock);
        const unsigned int code = mSum->RequestChunk(bytes, true);
        mBudget.mCharges.push_back(
            {bytes, ZBase::GetCurrentThreadID(), code == 0, mSum->GetLimit() - mSum->GetGranted(), false});
        return code;
    }
    void SettleChunk(std::size_t bytes) override { mSum->SettleChunk(bytes); }

private:
    Budget& mBudget;
    ZBase::SmartPtrI<ZBase::MemoryBudget> mSum;
};

Budget::Budget(std::size_t bytes) : mContract(new Purse(*this, bytes)) {
    mGovernor.mRequest = [this](std::size_t asked) { return Govern(asked); };
    mGovernor.mRelease = [this](std::size_t given) {
        const std::lock_guard lock(mLock);
        mOutstanding -= given;
    };
    mGovernor.mRefusalText = [](std::size_t) {
        return ZBase::WideString("The process has no memory left."_w);
    };
    ZBase::RegisterMemGovernor(&mGovernor);
}

Budget::~Budget() {
    ZBase::UnregisterMemGovernor(&mGovernor);
}

bool Budget::Govern(std::size_t bytes) {
    const std::lock_guard lock(mLock);
    mOutstanding += bytes;
    const auto asked = std::find_if(mCharges.rbegin(), mCharges.rend(), [](const Charge& charge) {
        return charge.thread == ZBase::GetCurrentThreadID();
    });
    if (asked != mCharges.rend()) asked->governorAsked = true;
    return true;
}

std::vector<Charge> Budget::Charges() const {
    const std::lock_guard lock(mLock);
    return mCharges;
}

std::size_t Budget::Outstanding() const {
    const std::lock_guard lock(mLock);
    return mOutstanding;
}

GovernedText ReadGoverned(const std::string& file, Budget& budget, std::size_t pieceSize,
                          unsigned int threads) {
    const OpenFile input(file);
    const ZBase::BufferPtr buffer(ZBase::CreateBufferThreadSafe(0, 1, budget.Contract(), pieceSize, false));
    Pieces pieces(input, *buffer, pieceSize);
    pieces.ReadAll(threads);
    return pieces.Join();
}
