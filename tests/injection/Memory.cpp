#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <memory_resource>

#include "tests/injection/Operation.h"

namespace test {

namespace {

using ZBase::Buffer;

using Factory = Buffer* (*)(int, int, ZBase::MemoryContract*, std::size_t, bool);

/// Everything that a buffer does, with what it has to show for it in the end.
void UsesABuffer(Trial& trial, Factory make, bool onBoundary) {
    const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1 << 24);
    int cleaned = 0;
    int registered = 0;
    Buffer* buffer = nullptr;
    trial([&] { buffer = make(1, 1, budget.Get(), 0, onBoundary); });
    if (buffer == nullptr) return;
    // Pieces of the first chunk, of further ones and larger than any; each is written to.
    std::size_t handedOut = 0;
    for (const std::size_t size : {std::size_t{8}, std::size_t{3000}, std::size_t{3000}, std::size_t{70000},
                                   std::size_t{3000}, std::size_t{9}}) {
        void* piece = nullptr;
        trial([&] { piece = buffer->Allocate(size); });
        if (piece == nullptr) continue;
        std::memset(piece, 0x5A, size);
        handedOut += size;
        const bool isRegistered =
            trial([&] { buffer->AddCleanup([](void* count) { ++*static_cast<int*>(count); }, &cleaned); });
        if (isRegistered) ++registered;
    }
    trial([&] { buffer->EnsureAvailable(5000); });
    trial([&] { buffer->SetLimit(1 << 23); });
    trial([&] { ZBase::LimitGrowth(buffer, 1 << 16); });
    EXPECT_GE(buffer->GetUsedBytes(), handedOut);
    EXPECT_GE(buffer->GetTotalBytes(), buffer->GetUsedBytes());
    EXPECT_EQ(buffer->GetTotalKB(), buffer->GetTotalBytes() / 1024);
    EXPECT_EQ(buffer->GetUsedKB(), buffer->GetUsedBytes() / 1024);
    trial([&] { buffer->DetachFromGovernors(); });
    EXPECT_TRUE(buffer->IsDetachedFromGovernors());
    trial([&] { buffer->Lock(); });
    trial([&] { buffer->Delete(); });
    EXPECT_EQ(cleaned, registered);
    if (trial.IsUntouched()) {
        EXPECT_EQ(budget->GetSettled(), budget->GetGranted());
    }
}

template <class T>
void Places(Trial& trial, Buffer* buffer) {
    trial([&] {
        T* const one = new (buffer) T();
        T* const some = new (buffer) T[3]();
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(one) % alignof(T), 0u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(some) % alignof(T), 0u);
    });
    // A constructor that throws leaves its piece with the buffer.
    struct Throwing : T {
        Throwing() { throw 7; }
    };
    trial([&] {
        try {
            static_cast<void>(new (buffer) Throwing());
        } catch (int) {
        }
        try {
            static_cast<void>(new (buffer) Throwing[2]());
        } catch (int) {
        }
    });
}

void PlacesInABuffer(Trial& trial) {
    Buffer* const buffer = ZBase::CreateBufferSingleThread(0, 1, nullptr, 256, false);
    struct Plain {
        long number[40];
    };
    struct alignas(64) Aligned {
        long number[40];
    };
    Places<Plain>(trial, buffer);
    Places<Aligned>(trial, buffer);
    trial([&] {
        ZBase::BufferResource memory(buffer);
        std::pmr::vector<int> numbers(&memory);
        for (int i = 0; i != 500; ++i) numbers.push_back(i);
        EXPECT_TRUE(memory == ZBase::BufferResource(buffer));
        EXPECT_EQ(numbers[499], 499);
    });
    buffer->Delete();
}

void PaysForAContainer(Trial& trial) {
    const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1000);
    trial([&] {
        std::vector<char, ZBase::ContractManagerAllocator<char>> text{
            ZBase::ContractManagerAllocator<char>(budget.Get())};
        text.resize(600);
        EXPECT_EQ(budget->GetSettled(), 600u);
        try {
            text.resize(601);
            ADD_FAILURE();
        } catch (const ZBase::ContractManagerAllocException&) {
        }
    });
}

void KeepsABudget(Trial& trial) {
    trial([] {
        const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(100);
        EXPECT_EQ(budget->Request(60), 0u);
        budget->Settle(60);
        EXPECT_EQ(budget->Request(60), 1816u);
        budget->Refund(60);
        EXPECT_EQ(budget->RequestChunk(100, true), 0u);
        budget->SettleChunk(100);
    });
}

void KeepsACeiling(Trial& trial) {
    trial([] {
        const ZBase::MemoryCeiling ceiling(1 << 20);
        Buffer* const buffer = ZBase::CreateBufferSingleThread(0, 1, nullptr, 0, false);
        try {
            buffer->Allocate(2 << 20);
            buffer->Delete();
            ADD_FAILURE();
        } catch (const ZBase::MemGoverningException&) {
            buffer->Delete();
        } catch (...) {
            buffer->Delete();
            throw;
        }
        EXPECT_EQ(ceiling.GetHeld(), 0u);
    });
}

void RegistersAGovernor(Trial& trial) {
    ZBase::MemGovernorProxy governor;
    governor.mRequest = [](std::size_t) { return true; };
    governor.mRelease = [](std::size_t) {};
    trial([&] { ZBase::RegisterMemGovernor(&governor); });
    trial([&] { ZBase::UnregisterMemGovernor(&governor); });
    ZBase::UnregisterMemGovernor(&governor);
}

void TakesPages(Trial& trial) {
    void* pages = nullptr;
    trial([&] { pages = ZBase::ZNTVirtualAlloc(100'000, true); });
    EXPECT_TRUE(pages != nullptr || !trial.IsUntouched());
    if (pages == nullptr) return;
    std::memset(pages, 1, 100'000);
    int failed = 0;
    trial([&] { failed = ZBase::ZNTVirtualProtect(pages, 4096, true); });
    EXPECT_TRUE(failed == 0 || !trial.IsUntouched());
    bool isGone = true;
    trial([&] { isGone = ZBase::ZNTDeCommit(pages, 4096); });
    EXPECT_TRUE(isGone || !trial.IsUntouched());
    trial([&] { failed = ZBase::ZNTVirtualFree(pages, 0, true); });
    EXPECT_TRUE(failed == 0 || !trial.IsUntouched());
    // Who was told that it failed has them still, and gives them back later.
    if (failed != 0) {
        EXPECT_EQ(ZBase::ZNTVirtualFree(pages, 0, true), 0);
    }
}

void SetsPageCallbacks(Trial& trial) {
    trial([] {
        ZBase::SetCallBackVirtualAlloc([](std::size_t) -> void* { return nullptr; });
        EXPECT_EQ(ZBase::ZNTVirtualAlloc(1, true), nullptr);
        ZBase::UnSetCallBackVirtualAlloc();
        ZBase::SetCallBackVirtualFree([](void*, std::size_t) { return 5; });
        EXPECT_EQ(ZBase::ZNTVirtualFree(nullptr, 0, true), 5);
        ZBase::SetCallBackVirtualFree(nullptr);
        ZBase::SetCallBackVirtualProtect([](void*, std::size_t) { return 0; });
        EXPECT_EQ(ZBase::ZNTVirtualProtect(nullptr, 0, true), 1);
        ZBase::UnSetCallBackVirtualProtect();
    });
}

void AsksTheOutsideHeap(Trial& trial) {
    trial([] {
        ZBase::SmartHeapIntegrator::Init();
        ZBase::SmartHeapIntegrator::MemPatchProcess();
        EXPECT_TRUE(ZBase::SmartHeapIntegrator::IsSmartHeapEnabled());
        ZBase::SmartHeapIntegrator::SetHookingEnabled();
        EXPECT_TRUE(ZBase::SmartHeapIntegrator::GetHookingEnabled());
        ZBase::SmartHeapIntegrator::MemInfo information{};
        EXPECT_FALSE(ZBase::SmartHeapIntegrator::GetMemoryUsageInfo(information));
        EXPECT_EQ(ZBase::SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(1), 0u);
        ZBase::SmartHeapIntegrator one;
        ZBase::SmartHeapIntegrator other;
        one = other;
        one = ZBase::SmartHeapIntegrator();
    });
}

void TellsFigures(Trial& trial) {
    trial([] {
        ZBase::GetBufferFigures();
        Buffer::GetOnBoundaryAllocTotal();
        Buffer::GetDefaultBufferImplementation();
    });
}

}  // namespace

std::vector<Operation> MemoryOperations() {
    constexpr unsigned int kEnds = kReturns | kBadAlloc | kMessage;
    return {
        {"uses a buffer for one thread",
         {"ZBase::CreateBufferSingleThread", "ZBase::LimitGrowth"},
         kEnds,
         [](Trial& trial) { UsesABuffer(trial, ZBase::CreateBufferSingleThread, false); }},
        {"uses pages for one thread",
         {},
         kEnds,
         [](Trial& trial) { UsesABuffer(trial, ZBase::CreateBufferSingleThread, true); }},
        {"uses a buffer for threads",
         {"ZBase::CreateBufferThreadSafe"},
         kEnds,
         [](Trial& trial) { UsesABuffer(trial, ZBase::CreateBufferThreadSafe, false); }},
        {"uses pages for threads",
         {},
         kEnds,
         [](Trial& trial) { UsesABuffer(trial, ZBase::CreateBufferThreadSafe, true); }},
        {"uses a debug buffer",
         {"ZBase::CreateDebugBuffer"},
         kEnds,
         [](Trial& trial) { UsesABuffer(trial, ZBase::CreateDebugBuffer, false); }},
        {"uses the chosen buffer",
         {"ZBase::CreateBuffer(int, int, ZBase::MemoryContract*, unsigned long, bool)",
          "ZBase::CreateBuffer(int, int, unsigned long, bool)"},
         kEnds,
         [](Trial& trial) {
             UsesABuffer(trial, ZBase::CreateBuffer, false);
             Buffer* buffer = nullptr;
             trial([&] { buffer = ZBase::CreateBuffer(1, 1, 0, true); });
             if (buffer != nullptr) buffer->Delete();
         }},
        {"places objects in a buffer",
         {"operator new", "operator delete", "ZBase::BufferResource::*"},
         kReturns | kBadAlloc,
         PlacesInABuffer},
        {"pays for a container",
         {"ZBase::detail::AllocateUnderContract"},
         kReturns | kBadAlloc,
         PaysForAContainer},
        {"keeps a budget", {"ZBase::MemoryBudget::*"}, kReturns | kBadAlloc, KeepsABudget},
        {"keeps a ceiling", {"ZBase::MemoryCeiling::*"}, kReturns | kBadAlloc, KeepsACeiling},
        {"registers a governor",
         {"ZBase::RegisterMemGovernor", "ZBase::UnregisterMemGovernor"},
         kReturns | kBadAlloc,
         RegistersAGovernor},
        {"takes pages",
         {"ZBase::ZNTVirtualAlloc", "ZBase::ZNTVirtualFree", "ZBase::ZNTVirtualProtect",
          "ZBase::ZNTDeCommit"},
         kReturns,
         TakesPages},
        {"sets callbacks for pages",
         {"ZBase::SetCallBackVirtual*", "ZBase::UnSetCallBackVirtual*"},
         kReturns,
         SetsPageCallbacks},
        {"asks the outside heap", {"ZBase::SmartHeapIntegrator::*"}, kReturns, AsksTheOutsideHeap},
        {"tells figures of buffers", {"ZBase::GetBufferFigures", "ZBase::Buffer::*"}, kReturns, TellsFigures},
    };
}

}  // namespace test
