#include <Base/ZBase.h>

#include <algorithm>
#include <memory_resource>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"

namespace test {

namespace {

using ZBase::Buffer;
using ZBase::BufferPtr;
using Factory = Buffer* (*)(int, int, ZBase::MemoryContract*, std::size_t, bool);

struct Maker {
    const char* name;
    Factory make;
    bool onBoundary;
};

const Maker kMakers[] = {
    {"a buffer for one thread", ZBase::CreateBufferSingleThread, false},
    {"pages for one thread", ZBase::CreateBufferSingleThread, true},
    {"a lock-free buffer", ZBase::CreateBufferThreadSafe, false},
    {"lock-free pages", ZBase::CreateBufferThreadSafe, true},
    {"a debug buffer", ZBase::CreateDebugBuffer, false},
};

const std::vector<std::string_view> kFactories = {"ZBase::CreateBufferSingleThread",
                                                  "ZBase::CreateBufferThreadSafe",
                                                  "ZBase::CreateDebugBuffer",
                                                  "ZBase::CreateBuffer",
                                                  "ZBase::LimitGrowth",
                                                  "ZBase::GetBufferFigures",
                                                  "ZBase::Buffer::GetOnBoundaryAllocTotal"};

// Chunks of which each holds one piece.
constexpr std::size_t kPiece = 200;
constexpr std::size_t kLarge = 5000;  // more than a page

struct BufferUse {
    const char* name;
    std::size_t length;
    void (*run)(Buffer& buffer, std::size_t count);
    bool hasSmallChunks = false;  // as many chunks as pieces
    const char* lockFreeReason = nullptr;
};

const BufferUse kBufferUses[] = {
    {"small pieces", 1024,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(24);
     }},
    {"pieces of many sizes", 512,
     [](Buffer& buffer, std::size_t count) {
         std::mt19937 numbers = Numbers(count);
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(numbers() % 2000);
     }},
    {"pieces each larger than the last", 256,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(i % 2 == 0 ? 4096 : 8);
     }},
    {"chunks", 64,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(kPiece);
     },
     true},
    {"chunks, and figures at each", 64,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) {
             buffer.Allocate(kPiece);
             buffer.GetUsedBytes();
             buffer.GetTotalKB();
             buffer.GetUsedKB();
             ZBase::GetBufferFigures();
             Buffer::GetOnBoundaryAllocTotal();
         }
     },
     true, "the used bytes are counted by a walk over the chunks, so that no thread waits for another"},
    {"room made ready", 64,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) {
             buffer.EnsureAvailable(3 * kPiece);
             buffer.Allocate(kPiece);
         }
     },
     true},
    {"clean-ups", 512,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.AddCleanup([](void*) {}, nullptr);
     }},
    {"chunks that are locked", 64,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(kPiece);
         buffer.Lock();
     },
     true},
    {"chunks that are detached", 64,
     [](Buffer& buffer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) buffer.Allocate(kPiece);
         buffer.DetachFromGovernors();
     },
     true},
    {"chunks that a limit refuses", 64,
     [](Buffer& buffer, std::size_t count) {
         buffer.SetLimit(1000);
         for (std::size_t i = 0; i != count; ++i) Try([&] { buffer.Allocate(kLarge); });
     },
     true},
    {"a container", 2048,
     [](Buffer& buffer, std::size_t count) {
         ZBase::BufferResource memory(&buffer);
         std::pmr::vector<int> numbers(&memory);
         for (std::size_t i = 0; i != count; ++i) numbers.push_back(1);
     }},
    {"objects", 512,
     [](Buffer& buffer, std::size_t count) {
         struct alignas(64) Aligned {
             char octets[64];
         };
         for (std::size_t i = 0; i != count; ++i) {
             static_cast<void>(new (&buffer) int(1));
             static_cast<void>(new (&buffer) Aligned);
             static_cast<void>(new (&buffer) int[3]);
         }
     }},
};

void AddBuffers(std::vector<Row>& rows) {
    for (const Maker& maker : kMakers) {
        for (const BufferUse& use : kBufferUses) {
            Row row{std::string(maker.name) + ", " + use.name, kFactories, use.length,
                    [&maker, &use](std::size_t count) {
                        return Job([&maker, &use, count] {
                            const BufferPtr buffer(maker.make(0, 1, nullptr, 256, maker.onBoundary));
                            if (use.hasSmallChunks) ZBase::LimitGrowth(buffer.get(), 0);
                            use.run(*buffer, count);
                        });
                    }};
            const bool isExcused =
                use.lockFreeReason != nullptr && maker.make == ZBase::CreateBufferThreadSafe;
            rows.push_back(isExcused ? std::move(row).May(2, use.lockFreeReason) : std::move(row));
        }
        rows.push_back({std::string(maker.name) + ", in number", {}, 64, [&maker](std::size_t count) {
                            return Job([&maker, count] {
                                std::vector<BufferPtr> buffers;
                                for (std::size_t i = 0; i != count; ++i) {
                                    buffers.emplace_back(maker.make(0, 1, nullptr, 256, maker.onBoundary));
                                    buffers.back()->Allocate(kPiece);
                                }
                                std::shuffle(buffers.begin(), buffers.end(), Numbers(count));
                                while (!buffers.empty()) buffers.pop_back();
                            });
                        }});
    }
}

// Who pays.

void AddBudgets(std::vector<Row>& rows) {
    for (const Maker& maker : kMakers) {
        rows.push_back({std::string(maker.name) + ", chunks that are paid for",
                        {"ZBase::MemoryBudget::*"},
                        64,
                        [&maker](std::size_t count) {
                            return Job([&maker, count] {
                                const ZBase::SmartPtrI<ZBase::MemoryBudget> budget =
                                    ZBase::MemoryBudget::Create(100 * kPiece * count);
                                const BufferPtr buffer(maker.make(0, 1, budget.Get(), 256, maker.onBoundary));
                                ZBase::LimitGrowth(buffer.get(), 0);
                                for (std::size_t i = 0; i != count; ++i) buffer->Allocate(kPiece);
                            });
                        }});
        rows.push_back(
            {std::string(maker.name) + ", chunks that a budget refuses", {}, 64, [&maker](std::size_t count) {
                 return Job([&maker, count] {
                     const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1000);
                     const BufferPtr buffer(maker.make(0, 1, budget.Get(), 256, maker.onBoundary));
                     ZBase::LimitGrowth(buffer.get(), 0);
                     for (std::size_t i = 0; i != count; ++i) Try([&] { buffer->Allocate(kLarge); });
                 });
             }});
    }
    rows.push_back(
        {"a contract for a container", {"ZBase::detail::AllocateUnderContract"}, 4096, [](std::size_t count) {
             return Job([count] {
                 const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1 << 30);
                 std::vector<char, ZBase::ContractManagerAllocator<char>> text{
                     ZBase::ContractManagerAllocator<char>(budget.Get())};
                 for (std::size_t i = 0; i != count; ++i) text.push_back('x');
             });
         }});
    rows.push_back({"budgets in number", {}, 256, [](std::size_t count) {
                        return Job([count] {
                            std::vector<ZBase::SmartPtrI<ZBase::MemoryBudget>> budgets;
                            for (std::size_t i = 0; i != count; ++i)
                                budgets.push_back(ZBase::MemoryBudget::Create(100));
                        });
                    }});
}

std::vector<ZBase::MemGovernorProxy> Governors(std::size_t count) {
    std::vector<ZBase::MemGovernorProxy> governors(count);
    for (ZBase::MemGovernorProxy& governor : governors) {
        governor.mRequest = [](std::size_t) { return true; };
        governor.mRelease = [](std::size_t) {};
    }
    return governors;
}

void AddGovernors(std::vector<Row>& rows) {
    for (const bool isReverse : {false, true}) {
        rows.push_back(
            {std::string("governors in number, ") + (isReverse ? "newest first" : "oldest first"),
             {"ZBase::RegisterMemGovernor", "ZBase::UnregisterMemGovernor"},
             256,
             [isReverse](std::size_t count) {
                 return Over(Governors(count), [isReverse](std::vector<ZBase::MemGovernorProxy>& governors) {
                     const auto each = [&](auto what) {
                         for (std::size_t i = 0; i != governors.size(); ++i)
                             what(&governors[isReverse ? governors.size() - 1 - i : i]);
                     };
                     each(ZBase::RegisterMemGovernor);
                     const BufferPtr buffer(ZBase::CreateBufferSingleThread(1, 1, nullptr, 256, false));
                     buffer->Allocate(10'000);
                     each(ZBase::UnregisterMemGovernor);
                 });
             }});
    }
    rows.push_back({"ceilings in number", {"ZBase::MemoryCeiling::*"}, 64, [](std::size_t count) {
                        return Job([count] {
                            std::vector<std::unique_ptr<ZBase::MemoryCeiling>> ceilings;
                            for (std::size_t i = 0; i != count; ++i)
                                ceilings.push_back(std::make_unique<ZBase::MemoryCeiling>(1 << 20));
                            while (!ceilings.empty()) ceilings.pop_back();
                        });
                    }});
    rows.push_back({"chunks under a ceiling that refuses", {}, 64, [](std::size_t count) {
                        return Job([count] {
                            const ZBase::MemoryCeiling ceiling(100);
                            const BufferPtr buffer(
                                ZBase::CreateBufferSingleThread(0, 1, nullptr, 256, false));
                            for (std::size_t i = 0; i != count; ++i) Try([&] { buffer->Allocate(kPiece); });
                        });
                    }});
}

// Pages, given back in three orders.

enum class EOrder { eFirst, eLast, eRandom };

void AddPages(std::vector<Row>& rows) {
    for (const EOrder order : {EOrder::eFirst, EOrder::eLast, EOrder::eRandom}) {
        constexpr const char* kNames[] = {"oldest first", "newest first", "in random order"};
        rows.push_back({std::string("pages, given back ") + kNames[static_cast<int>(order)],
                        {"ZBase::ZNTVirtualAlloc", "ZBase::ZNTVirtualFree", "ZBase::ZNTVirtualProtect",
                         "ZBase::ZNTDeCommit"},
                        64,
                        [order](std::size_t count) {
                            return Job([order, count] {
                                std::vector<void*> pages;
                                for (std::size_t i = 0; i != count; ++i)
                                    pages.push_back(ZBase::ZNTVirtualAlloc(5000, true));
                                if (order == EOrder::eLast) std::reverse(pages.begin(), pages.end());
                                if (order == EOrder::eRandom)
                                    std::shuffle(pages.begin(), pages.end(), Numbers(count));
                                for (void* const page : pages) {
                                    ZBase::ZNTVirtualProtect(page, 4096, true);
                                    ZBase::ZNTDeCommit(page, 4096);
                                    ZBase::ZNTVirtualFree(page, 0, true);
                                }
                            });
                        }});
    }
    rows.push_back({"pages in one", {}, 1 << 20, [](std::size_t size) {
                        return Job([size] {
                            void* const pages = ZBase::ZNTVirtualAlloc(size, true);
                            ZBase::ZNTVirtualProtect(pages, size, true);
                            ZBase::ZNTDeCommit(pages, size);
                            ZBase::ZNTVirtualFree(pages, 0, true);
                        });
                    }});
}

}  // namespace

std::vector<Row> MemoryRows() {
    std::vector<Row> rows;
    AddBuffers(rows);
    AddBudgets(rows);
    AddGovernors(rows);
    AddPages(rows);
    return rows;
}

}  // namespace test
