#include <Base/diagnostics/CallStack.h>
#include <Base/memory/CreateBuffer.h>
#include <Base/memory/detail/DebugBuffer.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "tests/scripted/ScriptedDebugHelp.h"

// The report of debugging mode, by a buffer that turns it on for itself.

namespace {

using namespace ZBase;
using test::gDebugHelp;

class WatchedBuffer : public DebugBuffer {
public:
    WatchedBuffer() : DebugBuffer(1, 1, nullptr, 4096, false) { mDebugMode = true; }
    void NoteCreation() { mCreationStack = CreateCallStack(nullptr); }
    void MarkDeleted() { mDeleted = true; }
    void MarkAlive() { mDeleted = false; }
};

class DebugBufferReport : public testing::Test {
protected:
    void SetUp() override {
        gDebugHelp = {};
        mBefore = std::filesystem::current_path();
        std::random_device random;
        do mPlace = std::filesystem::temp_directory_path() / ("debugbuf" + std::to_string(random()));
        while (!std::filesystem::create_directory(mPlace));
        std::filesystem::current_path(mPlace);
    }
    void TearDown() override {
        std::filesystem::current_path(mBefore);
        std::filesystem::remove_all(mPlace);
        gDebugHelp = {};
    }

    static std::string Report() {
        std::ifstream file("DebugBuf.log");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static std::string Heading(const void* buffer) {
        char text[64];
        std::snprintf(text, sizeof text, "DebugBuffer address: %016lX\n",
                      static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(buffer)));
        return text;
    }

    std::filesystem::path mBefore;
    std::filesystem::path mPlace;
};

const std::string kStart = "------------ Callstack: ------------\n";
const std::string kEnd = "------------------------------------\n";

std::string Line(const char* digits) {
    return std::string("0x00000000000010") + digits + " 0x00000000000020" + digits +
           " Mod:[]\tSym:[(NA)]+0x0\tFile:[(NA)](0)\n";
}

TEST_F(DebugBufferReport, IsNotWrittenWhileTheBufferLives) {
    WatchedBuffer buffer;
    buffer.Allocate(8);
    EXPECT_EQ(Report(), "");
}

TEST_F(DebugBufferReport, OrdinaryDeleteLeavesTheListEmptyAndWritesNothing) {
    CreateDebugBuffer(1, 1, nullptr, 0, true)->Delete();
    EXPECT_TRUE(gDebugBufferList.IsEmpty());
    EXPECT_EQ(Report(), "");
}

TEST_F(DebugBufferReport, NamesBothStacksWithoutTheirFirstLine) {
    auto* buffer = new WatchedBuffer;
    gDebugHelp.steps = 5 + 3;
    buffer->NoteCreation();
    gDebugHelp.steps = 5 + 2;
    EXPECT_TRUE(gDebugBufferList.IsEmpty());
    buffer->Delete();  // parks it: the list destroys it at the end of the process
    EXPECT_FALSE(gDebugBufferList.IsEmpty());
    buffer->GetTotalKB();
    EXPECT_EQ(Report(),
              Heading(buffer) + kStart + Line("07") + Line("08") + kEnd + kStart + Line("07") + kEnd);
}

TEST_F(DebugBufferReport, LeavesOutAStackOfFewerThanTwoLines) {
    WatchedBuffer buffer;
    gDebugHelp.steps = 5 + 1;
    buffer.NoteCreation();
    buffer.MarkDeleted();
    buffer.GetUsedBytes();
    EXPECT_EQ(Report(), Heading(&buffer));
}

TEST_F(DebugBufferReport, IsWrittenByEachOperationAndReplacesTheLast) {
    WatchedBuffer buffer;
    const auto expectReport = [&](auto operation) {
        std::remove("DebugBuf.log");
        operation();
        operation();
        EXPECT_EQ(Report(), Heading(&buffer));
    };
    buffer.MarkDeleted();
    expectReport([&] { buffer.EnsureAvailable(1); });
    expectReport([&] { buffer.Allocate(1); });
    expectReport([&] { buffer.GetTotalKB(); });
    expectReport([&] { buffer.GetUsedKB(); });
    expectReport([&] { buffer.GetTotalBytes(); });
    expectReport([&] { buffer.GetUsedBytes(); });
    expectReport([&] { buffer.SetLimit(0); });
    expectReport([&] { buffer.AddCleanup([](void*) {}, nullptr); });
    std::remove("DebugBuf.log");
    buffer.DetachFromGovernors();
    EXPECT_TRUE(buffer.IsDetachedFromGovernors());
    EXPECT_EQ(Report(), "");
    expectReport([&] { buffer.Lock(); });
}

TEST_F(DebugBufferReport, ThatCannotBeWrittenLeavesTheCallAlone) {
    WatchedBuffer buffer;
    buffer.MarkDeleted();
    ASSERT_TRUE(std::filesystem::create_directory("DebugBuf.log"));
    EXPECT_NE(buffer.Allocate(8), nullptr);
}

}  // namespace
