#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

// Calls of a forked child while other threads were in the middle of the same calls.

namespace {

using namespace ZBase::Literals;

bool UsePages() {
    void* const pages = ZBase::ZNTVirtualAlloc(8192, false);
    return pages != nullptr && ZBase::ZNTVirtualProtect(pages, 4096, false) == 0 &&
           ZBase::ZNTDeCommit(pages, 4096) && ZBase::ZNTVirtualFree(pages, 0, false) == 0;
}

bool UseBuffer(ZBase::Buffer* buffer) {
    bool works = true;
    for (int i = 0; i != 20; ++i) works = works && buffer->Allocate(1000) != nullptr;
    buffer->Delete();
    return works;
}

bool UseBufferOfOneThread() {
    return UseBuffer(ZBase::CreateBufferSingleThread(1, 1, nullptr, 4096, true));
}

bool UseBufferOfManyThreads() {
    return UseBuffer(ZBase::CreateBufferThreadSafe(1, 1, nullptr, 4096, true));
}

bool UseMessage() {
    ZBase::Message message(300, 7, "%1 is not there");
    message << std::string(500, 'x').c_str();
    message.WrapBy(300, 8, "outer");
    return ZBase::FormatMessage(message, 0).GetLength() > 500;
}

bool UseSystemErrors() {
    return ZBase::GetSystemErrorDescription(5).GetLength() > 0;
}

bool UseProcess() {
    return ZBase::IsProcessAlive(ZBase::GetCurrentProcessID()) && ZBase::GetPrivateBytes() != 0 &&
           ZBase::GetProcessName(ZBase::GetCurrentProcessID()).GetLength() != 0 &&
           ZBase::GetCurrentProcessName().GetLength() != 0;
}

bool UseModules() {
    return ZBase::GetModuleFileNameByAddressWithinModule(reinterpret_cast<const void*>(&UseModules))
               .GetLength() != 0;
}

struct Use {
    const char* name;
    bool (*use)();
};

class Fork : public testing::TestWithParam<Use> {};

TEST_P(Fork, OfABusyProcessGivesAChildThatWorks) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    const auto use = GetParam().use;
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i != 3; ++i) {
        threads.emplace_back([&] {
            while (!stop) failures += use() ? 0 : 1;
        });
    }
    for (int i = 0; i != 200; ++i) {
        EXPECT_EQ(test::InChild([use] { return use() ? 0 : 1; }), 0) << i;
        if (testing::Test::HasFailure()) break;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

INSTANTIATE_TEST_SUITE_P(Uses, Fork,
                         testing::Values(Use{"Pages", UsePages},
                                         Use{"BufferOfOneThread", UseBufferOfOneThread},
                                         Use{"BufferOfManyThreads", UseBufferOfManyThreads},
                                         Use{"Message", UseMessage}, Use{"SystemErrors", UseSystemErrors},
                                         Use{"Process", UseProcess}, Use{"Modules", UseModules}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
