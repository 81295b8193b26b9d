// The input is a program of operations on contracts and governors, and on buffers and containers that pay
// from them; the model counts.
//
// For: Base/memory/MemoryBudget.cpp Base/memory/MemoryCeiling.cpp Base/memory/MemGovernorProxy.cpp
// For: Base/memory/detail/budgets/BookedBytes.h Base/ContractManagerAllocator.cpp

#include <Base/ContractManagerAllocator.h>
#include <Base/frame/Exceptions.h>
#include <Base/memory/BufferFigures.h>
#include <Base/memory/BufferPtr.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/MemGovernorProxy.h>
#include <Base/memory/MemoryBudget.h>
#include <Base/memory/MemoryCeiling.h>
#include <Base/text/UnicodeConversions.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "tests/support/Choices.h"

namespace {

using test::Choices;

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

// A sum of bytes below a limit.
struct Account {
    std::size_t limit;
    std::size_t granted = 0;
    std::size_t settled = 0;
    std::size_t refused = 0;
    std::size_t refusals = 0;

    bool Book(std::size_t bytes) {
        const bool grants = granted <= limit && bytes <= limit - granted;
        (grants ? granted : refused) += bytes;
        refusals += grants ? 0 : 1;
        return grants;
    }
};

struct Held {
    ZBase::BufferPtr buffer;
    std::size_t total = 0;  // bytes of its chunks
    bool isDetached = false;
};

class Program {
public:
    explicit Program(Choices& choices)
        : mContractAccount{Limit(choices)},
          mCeilingAccount{Limit(choices)},
          mBudget(ZBase::MemoryBudget::Create(mContractAccount.limit)),
          mCeiling(std::make_unique<ZBase::MemoryCeiling>(mCeilingAccount.limit)) {}

    void Run(Choices& choices) {
        for (int steps = 0; !choices.IsOver() && steps != 300; ++steps) {
            Step(choices);
            CheckFigures();
        }
        mBuffers.clear();
    }

private:
    static std::size_t Limit(Choices& choices) {
        return choices.Below(6) == 0 ? kAll : std::size_t{choices.Below(256)} * 1024;
    }
    static std::size_t Size(Choices& choices) {
        const unsigned int kind = choices.Below(12);
        if (kind == 0) return kAll - choices.Below(4);
        return kind < 4 ? std::size_t{choices.Below(256)} * 512 : choices.Below(256);
    }

    void Step(Choices& choices) {
        const unsigned int operation = choices.Below(9);
        const std::size_t size = Size(choices);
        const auto narrow = static_cast<unsigned int>(size);
        Account& account = mContractAccount;
        switch (operation) {
            case 0:
                fuzz::Check(mBudget->Request(narrow) == (account.Book(narrow) ? 0 : 1816), "Request");
                return;
            case 1:
                fuzz::Check(mBudget->RequestChunk(size, true) == (account.Book(size) ? 0 : 1816),
                            "RequestChunk");
                return;
            case 2:
                mBudget->Refund(narrow);
                account.granted -= std::min<std::size_t>(account.granted, narrow);
                return;
            case 3:
                mBudget->Settle(narrow);
                account.settled += narrow;
                mBudget->SettleChunk(size);
                account.settled += size;
                return;
            case 4:
                return Fill(std::min<std::size_t>(size, 100000));
            case 5:
                return MakeBuffer(choices, 1 + choices.Below(4));
            case 6:
                return Detach(choices);
            case 7:
                return Delete(choices);
            default:
                return Grow(choices, size);
        }
    }

    // A vector under the contract: it requests, and settles, what it takes, and no more when it is freed.
    void Fill(std::size_t count) {
        Account& account = mContractAccount;
        const bool grants = count == 0 || account.Book(8 * count);
        if (grants) account.settled += 8 * count;
        try {
            const std::vector<double, ZBase::ContractManagerAllocator<double>> numbers(
                count, 1.5, ZBase::ContractManagerAllocator<double>(mBudget.Get()));
            fuzz::Check(grants, "memory that was not granted");
        } catch (const ZBase::ContractManagerAllocException& refusal) {
            fuzz::Check(!grants && refusal.GetID() == 1816, "a refusal of the contract");
        }
        try {
            static_cast<void>(ZBase::ContractManagerAllocator<double>(mBudget.Get()).allocate(kAll / 4));
            fuzz::Check(false, "more memory than there is");
        } catch (const std::bad_array_new_length&) {
        }
    }

    // The contract is asked first, then the ceiling, whose yes stands if the chunk is taken.
    bool Charge(std::size_t bytes, bool asksCeiling) {
        if (!mContractAccount.Book(bytes)) return false;
        if (asksCeiling && !mCeilingAccount.Book(bytes)) return false;
        mContractAccount.settled += bytes;
        return true;
    }

    template <class Take>
    void Try(bool expected, Take take) {
        bool taken = false;
        try {
            take();
            taken = true;
        } catch (const ZBase::ContractManagerAllocException& refusal) {
            fuzz::Check(refusal.GetID() == 1816 && refusal.GetDomain() == 0, "a refusal of the contract");
        } catch (const ZBase::MemGoverningException& refusal) {
            fuzz::Check(refusal.GetDomain() == 300 && refusal.GetID() == static_cast<int>(0x8000FE24),
                        "a refusal of the ceiling");
            const std::string told =
                "The buffers of the process may hold " + std::to_string(mCeilingAccount.limit);
            fuzz::Check(
                std::string(ZBase::WideCharToUTF8(refusal.GetMessage(), false).c_str()).rfind(told, 0) == 0,
                "text of the ceiling");
        }
        fuzz::Check(taken == expected, "whether there is memory");
    }

    void MakeBuffer(Choices& choices, std::size_t blocks) {
        if (mBuffers.size() == 8) return;
        const bool onBoundary = choices.Flag();
        const std::size_t size = 4096 * blocks;
        const bool grants = Charge(size, true);
        Try(grants, [&] {
            ZBase::BufferPtr buffer(
                ZBase::CreateBufferThreadSafe(static_cast<int>(blocks), 1, mBudget.Get(), 4096, onBoundary));
            mBuffers.push_back({std::move(buffer), size, false});
        });
    }

    // One chunk more: what is left of the others is no more than this.
    void Grow(Choices& choices, std::size_t size) {
        if (mBuffers.empty()) return;
        Held& held = Pick(choices);
        size = std::min<std::size_t>(size, 64 * 1024);
        const std::size_t before = held.buffer->GetTotalBytes();
        const std::size_t granted = mContractAccount.granted;
        try {
            held.buffer->Allocate(size);
        } catch (const ZBase::ContractManagerAllocException&) {
        } catch (const ZBase::MemGoverningException&) {
        }
        // The contract's own figure tells what was asked for.
        const std::size_t added = held.buffer->GetTotalBytes() - before;
        const std::size_t asked = added != 0 ? added
                                  : mBudget->GetGranted() != granted
                                      ? mBudget->GetGranted() - granted
                                      : mBudget->GetRefused() - mContractAccount.refused;
        if (asked == 0) return;
        fuzz::Check(Charge(asked, !held.isDetached) == (added != 0), "whether the buffer grew");
        held.total += added;
    }

    Held& Pick(Choices& choices) {
        return mBuffers[choices.Below(static_cast<unsigned int>(mBuffers.size()))];
    }

    void Credit(const Held& held) {
        if (!held.isDetached) mCeilingAccount.granted -= std::min(mCeilingAccount.granted, held.total);
    }

    void Detach(Choices& choices) {
        if (mBuffers.empty()) return;
        Held& held = Pick(choices);
        Credit(held);
        held.isDetached = true;
        held.buffer->DetachFromGovernors();
        fuzz::Check(held.buffer->IsDetachedFromGovernors(), "detached");
    }

    void Delete(Choices& choices) {
        if (mBuffers.empty()) return;
        Held& held = Pick(choices);
        Credit(held);
        std::swap(held, mBuffers.back());
        mBuffers.pop_back();
    }

    void CheckFigures() {
        const Account& account = mContractAccount;
        fuzz::Check(mBudget->GetLimit() == account.limit && mBudget->GetGranted() == account.granted &&
                        mBudget->GetSettled() == account.settled && mBudget->GetRefused() == account.refused,
                    "figures of the contract");
        fuzz::Check(mCeiling->GetCeiling() == mCeilingAccount.limit &&
                        mCeiling->GetHeld() == mCeilingAccount.granted &&
                        mCeiling->GetRefusals() == mCeilingAccount.refusals,
                    "figures of the ceiling");
        std::size_t held = 0;
        for (const Held& one : mBuffers) held += one.total;
        const ZBase::BufferFigures figures = ZBase::GetBufferFigures();
        fuzz::Check(figures.heapBytes + figures.onBoundaryBytes == held, "bytes of all buffers");
    }

    Account mContractAccount;
    Account mCeilingAccount;
    ZBase::SmartPtrI<ZBase::MemoryBudget> mBudget;
    std::unique_ptr<ZBase::MemoryCeiling> mCeiling;
    std::vector<Held> mBuffers;
};

// A governor that misses its functions, one that is registered twice, and one that is not.
void CheckRegistration() {
    ZBase::MemGovernorProxy empty;
    ZBase::RegisterMemGovernor(nullptr);
    ZBase::UnregisterMemGovernor(&empty);
    ZBase::RegisterMemGovernor(&empty);
    ZBase::RegisterMemGovernor(&empty);
    bool isTold = false;
    try {
        ZBase::BufferPtr(ZBase::CreateBufferThreadSafe(2, 1, nullptr, 4096, true));
    } catch (const std::bad_function_call&) {
        isTold = true;
    }
    ZBase::UnregisterMemGovernor(&empty);
    fuzz::Check(isTold, "a governor without functions");
    ZBase::BufferPtr(ZBase::CreateBufferThreadSafe(2, 1, nullptr, 4096, true));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckRegistration();
    Choices choices(data, size);
    Program(choices).Run(choices);
    return 0;
}
