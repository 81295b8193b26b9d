#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackLineImp.h>
#include <Base/platform/os/ThreadContext.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tests/scripted/ScriptedDebugHelp.h"

// The walk where the system has no capture of its own.

namespace {

using namespace ZBase;
using test::gDebugHelp;

std::vector<std::uint64_t> Walk(DbgHelpBuilder& builder, unsigned long count, unsigned long skip) {
    std::uint64_t found[200] = {};
    builder.DoStackWalk(found, count, skip);
    std::vector<std::uint64_t> addresses;
    for (std::size_t i = 0; found[i] != 0; ++i) addresses.push_back(found[i]);
    return addresses;
}

class StackWalkWithoutCapture : public testing::Test {
protected:
    void SetUp() override {
        gDebugHelp = {};
        gDebugHelp.hasStackCapture = false;
        mBuilder = std::make_unique<DbgHelpBuilder>();
    }
    void TearDown() override { gDebugHelp = {}; }

    using Addresses = std::vector<std::uint64_t>;
    std::unique_ptr<DbgHelpBuilder> mBuilder;
};

TEST_F(StackWalkWithoutCapture, WritesNothingBeforeDebugHelpIsBoundAndDoesNotBindIt) {
    EXPECT_EQ(Walk(*mBuilder, 10, 0), Addresses());
    EXPECT_EQ(mBuilder->GetStackWalk(), nullptr);
}

TEST_F(StackWalkWithoutCapture, CountIncludesTheDroppedFrames) {
    ASSERT_TRUE(mBuilder->LoadSymbols());
    EXPECT_EQ(Walk(*mBuilder, 5, 0), (Addresses{0x1002, 0x1003, 0x1004, 0x1005}));
    EXPECT_EQ(Walk(*mBuilder, 5, 2), (Addresses{0x1004, 0x1005}));
    EXPECT_EQ(Walk(*mBuilder, 5, 4), Addresses());
    EXPECT_EQ(Walk(*mBuilder, 5, ~0UL), Addresses());
    EXPECT_EQ(Walk(*mBuilder, 0, 0), Addresses());
}

TEST_F(StackWalkWithoutCapture, EndsWithTheStack) {
    ASSERT_TRUE(mBuilder->LoadSymbols());
    gDebugHelp.steps = 3;
    EXPECT_EQ(Walk(*mBuilder, 100, 0), (Addresses{0x1002, 0x1003}));
}

TEST_F(StackWalkWithoutCapture, EndsAtANullAddressBehindTheDropped) {
    ASSERT_TRUE(mBuilder->LoadSymbols());
    gDebugHelp.stepWithoutAddress = 4;
    EXPECT_EQ(Walk(*mBuilder, 100, 0), (Addresses{0x1002, 0x1003}));
    gDebugHelp.stepWithoutAddress = 1;
    EXPECT_EQ(Walk(*mBuilder, 3, 0), (Addresses{0x1002, 0x1003}));
}

TEST(StackWalkWithCapture, CopiesFromTheSkippedOnUpToFortyInAll) {
    gDebugHelp = {};
    DbgHelpBuilder builder;
    const std::vector<std::uint64_t> few = Walk(builder, 3, 2);
    EXPECT_EQ(few, (std::vector<std::uint64_t>{0x5002, 0x5003, 0x5004}));
    EXPECT_EQ(Walk(builder, 100, 0).size(), 40U);
    EXPECT_EQ(Walk(builder, 100, 39), std::vector<std::uint64_t>{0x5000 + 39});
    EXPECT_EQ(Walk(builder, 100, 40).size(), 0U);
}

TEST(BuildCallStack, BindsAndReplacesTheLines) {
    gDebugHelp = {};
    gDebugHelp.steps = 7;
    DbgHelpBuilder builder;
    std::vector<CallStackLineImp> lines;
    for (int round = 0; round != 2; ++round) {
        os::ThreadContext context{};
        builder.BuildCallStack(lines, context);
        EXPECT_EQ(lines.size(), 2U);
    }
    gDebugHelp = {};
}

TEST(BuildCallStack, WithoutTheLibraryAppendsOneLineAtFirstAndNoneLater) {
    gDebugHelp = {};
    gDebugHelp.isThere = false;
    DbgHelpBuilder builder;
    std::vector<CallStackLineImp> lines;
    os::ThreadContext context{};
    builder.BuildCallStack(lines, context);
    ASSERT_EQ(lines.size(), 1U);
    builder.BuildCallStack(lines, context);
    EXPECT_EQ(lines.size(), 0U);
    gDebugHelp = {};
}

}  // namespace
