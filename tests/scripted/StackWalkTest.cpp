#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/diagnostics/detail/CallStackLineImp.h>
#include <Base/diagnostics/detail/RefCountCallStackTracerImp.h>
#include <Base/platform/os/stacks/DebugHelp.h>
#include <Base/platform/os/stacks/ThreadContext.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/scripted/ScriptedDebugHelp.h"
#include "tests/scripted/ScriptedModuleList.h"
#include "tests/scripted/ScriptedModules.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Stacks.h"

// The walk without a capture of the system.

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

TEST(StackWalkBuildCallStack, BindsAndReplacesTheLines) {
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

TEST(StackWalkBuildCallStack, BeginsWithTheContextsRipRspAndRdi) {
    gDebugHelp = {};
    DbgHelpBuilder builder;
    std::vector<CallStackLineImp> lines;
    os::ThreadContext context{};
    context.rip = 1;
    context.rsp = 2;
    context.rbp = 3;
    context.rdi = 4;
    builder.BuildCallStack(lines, context);
    EXPECT_EQ(gDebugHelp.seed, (std::vector<std::uint64_t>{1, 3, 2, 3, 4, 3}));  // flat addresses are 3
    EXPECT_EQ(gDebugHelp.process, os::CurrentProcess());
    EXPECT_EQ(gDebugHelp.thread, os::CurrentThread());
    gDebugHelp = {};
}

TEST(StackWalkBuildCallStack, WithoutTheLibraryAppendsOneLineAtFirstAndNoneLater) {
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

TEST(StackWalkBuildCallStack, WhenTheEngineDoesNotStartAppendsOneLineAtFirstAndWalksLater) {
    gDebugHelp = {};
    gDebugHelp.steps = 7;
    DbgHelpBuilder builder;
    std::vector<CallStackLineImp> lines;
    os::ThreadContext context{};
    builder.BuildCallStack(lines, context);
    ASSERT_EQ(lines.size(), 2U);
    gDebugHelp.starts = false;
    DbgHelpBuilder other;
    other.BuildCallStack(lines, context);
    ASSERT_EQ(lines.size(), 3U);  // after the earlier ones
    EXPECT_EQ(test::Narrow(lines[2].GetText()),
              "0x0000000000000000 0x0000000000000000 Mod:[dbghelp.dll load "
              "failed]\tSym:[(NA)]+0x0\tFile:[(NA)](0)");
    other.BuildCallStack(lines, context);
    EXPECT_EQ(lines.size(), 2U);
    EXPECT_EQ(gDebugHelp.started, 2);
    gDebugHelp = {};
}

TEST(StackWalkBuildCallStack, WithAnEntryMissingTriesAgainAndIsWholeWhenTheLibraryIs) {
    gDebugHelp = {};
    gDebugHelp.steps = 7;
    gDebugHelp.missingEntry = "SymLoadModule64";
    {
        DbgHelpBuilder builder;
        std::vector<CallStackLineImp> lines;
        os::ThreadContext context{};
        for (int round = 0; round != 3; ++round) builder.BuildCallStack(lines, context);
        EXPECT_EQ(lines.size(), 3U);
        EXPECT_EQ(gDebugHelp.opened, 1);
        EXPECT_EQ(gDebugHelp.started, 0);
        gDebugHelp.missingEntry = nullptr;
        builder.BuildCallStack(lines, context);
        EXPECT_EQ(lines.size(), 2U);
        EXPECT_EQ(gDebugHelp.opened, 1);
        EXPECT_EQ(gDebugHelp.started, 1);
    }
    EXPECT_EQ(gDebugHelp.opened, 0);
    gDebugHelp = {};
}

TEST(StackWalkBuildCallStack, KeepsNoEntryOfALibraryThatIsGoneAtTheNextTry) {
    gDebugHelp = {};
    gDebugHelp.missingEntry = "SymLoadModule64";
    DbgHelpBuilder builder;
    EXPECT_FALSE(builder.LoadSymbols());
    EXPECT_NE(builder.GetStackWalk(), nullptr);
    gDebugHelp.isThere = false;
    EXPECT_FALSE(builder.LoadSymbols());
    EXPECT_EQ(builder.GetStackWalk(), nullptr);
    EXPECT_EQ(builder.GetSymInitialize(), nullptr);
    EXPECT_EQ(builder.GetSymGetModuleInfo64(), nullptr);
    EXPECT_EQ(gDebugHelp.opened, 0);
    EXPECT_EQ(gDebugHelp.started, 0);
    gDebugHelp = {};
}

/// The line of the one frame, at 0x1006, of a module that begins at 0x1000.
std::string LineInModule(std::uint32_t sectionStart, std::uint32_t virtualSize, std::uint32_t rawSize) {
    gDebugHelp = {};
    gDebugHelp.steps = 6;
    gDebugHelp.symbol = "f";
    test::gModules = {};
    test::gModules.allocationBase = reinterpret_cast<const void*>(0x1000);
    test::gModuleList = {};
    test::gModuleList.sections = {{0x5000, 0x1000, 0x1000}, {sectionStart, virtualSize, rawSize}};
    DbgHelpBuilder builder;
    std::vector<CallStackLineImp> lines;
    os::ThreadContext context{};
    builder.BuildCallStack(lines, context);
    const std::string text = lines.empty() ? "" : test::Narrow(lines[0].GetText());
    gDebugHelp = {};
    test::gModules = {};
    test::gModuleList = {};
    return text;
}

const std::string kInSection =
    "0x0000000000001006 0x0000000000002006 Mod:[/lib/module.so]\tSym:[f]+0x6\tFile:[(NA)](0)";
const std::string kInNone = "0x0000000000001006 0x0000000000002006 Mod:[]\tSym:[(NA)]+0x0\tFile:[(NA)](0)";

TEST(StackWalkLogicalAddress, SectionEndsBehindTheGreaterOfItsSizes) {
    EXPECT_EQ(LineInModule(0, 6, 0), kInSection);  // the end is inclusive
    EXPECT_EQ(LineInModule(0, 0, 6), kInSection);
    EXPECT_EQ(LineInModule(0, 5, 5), kInNone);
    EXPECT_EQ(LineInModule(6, 0, 0), kInSection);
    EXPECT_EQ(LineInModule(7, 100, 100), kInNone);
    EXPECT_EQ(LineInModule(6, 0xFFFFFFFF, 0), kInSection);
}

TEST(StackWalkLogicalAddress, ModuleWithoutAPathOrBaseIsNone) {
    gDebugHelp = {};
    gDebugHelp.steps = 6;
    gDebugHelp.symbol = "f";
    for (int what = 0; what != 3; ++what) {
        test::gModules = {};
        test::gModules.allocationBase = what == 0 ? nullptr : reinterpret_cast<const void*>(0x1000);
        test::gModules.addressIsPossible = what != 1;
        if (what == 2) test::gModules.modulePath = nullptr;
        DbgHelpBuilder builder;
        std::vector<CallStackLineImp> lines;
        os::ThreadContext context{};
        builder.BuildCallStack(lines, context);
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(test::Narrow(lines[0].GetText()), kInNone) << what;
    }
    gDebugHelp = {};
    test::gModules = {};
}

TEST(StackWalkNullObjects, AreLetBeByDelete) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer tells each null object";
    CallStackImp* volatile stack = nullptr;
    stack->Delete();
    RefCountCallStackTracerImp* volatile tracer = nullptr;
    tracer->Delete();
}

}  // namespace
