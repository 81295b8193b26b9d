#include <Base/diagnostics/RefCountCallStackTracer.h>
#include <Base/frame/Threads.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/DebugOutput.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/scripted/ScriptedDebugHelp.h"
#include "tests/scripted/ScriptedDebugOutput.h"
#include "tests/support/Allocations.h"
#include "tests/support/TemporaryFile.h"

// Exact leak reports, with known stacks: 13 steps, of which 5 are dropped, leave 8 lines, and the report of a
// change prints those from index 6 on.

namespace {

using namespace ZBase;
using test::gDebugHelp;
using test::gDebugOutput;
using test::TemporaryFile;

std::string Line(const char* digits) {
    return std::string("0x00000000000010") + digits + " 0x00000000000020" + digits +
           " Mod:[]\tSym:[(NA)]+0x0\tFile:[(NA)](0)";
}

class LeakReport : public testing::Test {
protected:
    void SetUp() override {
        gDebugHelp = {};
        gDebugOutput.clear();
    }
    void TearDown() override { gDebugHelp = {}; }

    RefCountCallStackTracer* Tracer() { return CreateRefCountCallStackTracer("Nodes"_w, mFile.Path()); }
    static void* Object(std::uintptr_t address) { return reinterpret_cast<void*>(address); }
    std::string Process() { return "Proc<" + std::to_string(GetCurrentProcessID()) + ">: "; }

    TemporaryFile mFile;
};

TEST_F(LeakReport, ObjectThatGoes121IsReportedWithThreeStacksOldestFirst) {
    RefCountCallStackTracer* tracer = Tracer();
    for (const long count : {1L, 2L, 1L}) tracer->RecordRefCount(Object(0xABC0), count);
    tracer->Delete();
    const std::string stack = "\t\t" + Line("0C") + "\n\t\t" + Line("0D") + "\n";
    EXPECT_EQ(mFile.Text(), Process() + "******<Nodes>: Number of leaked objects = 1\n" + Process() +
                                "***<Nodes>: InstanceLeak = 0x000000000000ABC0:\n" +
                                "\t*CallStack when RefCount = 1:\n" + stack +
                                "\t*CallStack when RefCount = 2:\n" + stack +
                                "\t*CallStack when RefCount = 1:\n" + stack);
}

TEST_F(LeakReport, DebuggerIsToldInItsOwnWords) {
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0xABC0), 1);
    tracer->Delete();
    const std::vector<std::string> expected = {"W:******<Nodes>: Number of leaked objects = 1:\n",
                                               "W:\r\n",
                                               "W:***<Nodes>: Instance = 000000000000ABC0:\n",
                                               "W:\r\n",
                                               "W:\t*CallStack when RefCount = 1:\n",
                                               "W:\r\n",
                                               "W:\t\t" + Line("0C") + "\n",
                                               "W:\r\n",
                                               "W:\t\t" + Line("0D") + "\n",
                                               "W:\r\n"};
    EXPECT_EQ(gDebugOutput, expected);
}

TEST_F(LeakReport, DebuggersTextIsCutTo511Units) {
    const std::basic_string<unsigned short> label(600, 'L');
    RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer(label.c_str(), mFile.Path());
    tracer->Delete();
    ASSERT_EQ(gDebugOutput.size(), 2U);
    EXPECT_EQ(gDebugOutput[0], "W:******<" + std::string(511 - 7, 'L'));
}

TEST_F(LeakReport, ObjectThatGoes1210LeavesNoTrace) {
    RefCountCallStackTracer* tracer = Tracer();
    for (const long count : {1L, 2L, 1L, 0L}) tracer->RecordRefCount(Object(0x10), count);
    tracer->Delete();
    EXPECT_EQ(mFile.Text(), Process() + "******<Nodes>: Number of leaked objects = 0\n");
}

TEST_F(LeakReport, CountOfZeroForAnUnknownObjectChangesNothing) {
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0x10), 1);
    tracer->RecordRefCount(Object(0x20), 0);
    tracer->RecordRefCount(nullptr, 0);
    tracer->Delete();
    EXPECT_NE(mFile.Text().find("Number of leaked objects = 1\n"), std::string::npos);
}

TEST_F(LeakReport, AfterClearCountsNone) {
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0x10), 1);
    tracer->Clear();
    tracer->Delete();
    EXPECT_EQ(mFile.Text(), Process() + "******<Nodes>: Number of leaked objects = 0\n");
}

TEST_F(LeakReport, ObjectsComeInTheOrderOfTheirAddresses) {
    gDebugHelp.steps = 0;
    RefCountCallStackTracer* tracer = Tracer();
    for (const std::uintptr_t address : std::initializer_list<std::uintptr_t>{0x30, 0x10, UINTPTR_MAX, 0x20})
        tracer->RecordRefCount(Object(address), -7);
    tracer->Delete();
    std::string expected = Process() + "******<Nodes>: Number of leaked objects = 4\n";
    for (const char* address :
         {"0000000000000010", "0000000000000020", "0000000000000030", "FFFFFFFFFFFFFFFF"})
        expected +=
            Process() + "***<Nodes>: InstanceLeak = 0x" + address + ":\n\t*CallStack when RefCount = -7:\n";
    EXPECT_EQ(mFile.Text(), expected);
}

TEST_F(LeakReport, CountIsKeptIn32BitsAndOneThatThenIsZeroHasNoLines) {
    if (sizeof(long) < 8) GTEST_SKIP() << "a long has no more than 32 bits";
    gDebugHelp.steps = 0;
    RefCountCallStackTracer* tracer = Tracer();
    constexpr std::int64_t beyond = std::int64_t{1} << 32;
    tracer->RecordRefCount(Object(0x10), static_cast<long>(beyond));
    tracer->RecordRefCount(Object(0x20), static_cast<long>(beyond + 5));
    tracer->Delete();
    EXPECT_EQ(mFile.Text(), Process() + "******<Nodes>: Number of leaked objects = 2\n" + Process() +
                                "***<Nodes>: InstanceLeak = 0x0000000000000020:\n" +
                                "\t*CallStack when RefCount = 5:\n");
}

TEST_F(LeakReport, WithoutMemoryAChangeIsLostWhole) {
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0x10), 1);
    std::uintptr_t address = 0x100;
    std::size_t lost = 0;
    const std::size_t failures = test::ForEachFailingAllocation([&] {
        try {
            tracer->RecordRefCount(Object(address++), 1);
        } catch (const std::bad_alloc&) {
            ++lost;
        }
    });
    EXPECT_GT(failures, 3U);
    // If the stack's own object can't be allocated, there is a change without a stack.
    EXPECT_EQ(lost, failures - 1);
    tracer->ReportLeaks();
    EXPECT_NE(mFile.Text().find("Number of leaked objects = 3\n"), std::string::npos) << mFile.Text();
    tracer->Clear();
    tracer->Delete();
}

TEST_F(LeakReport, TracerThatCannotBeAllocatedIsNull) {
    std::size_t nulls = 0;
    test::ForEachFailingAllocation([&] {
        try {
            RefCountCallStackTracer* tracer = Tracer();
            nulls += tracer == nullptr;
            if (tracer != nullptr) tracer->Clear();
            if (tracer != nullptr) tracer->Delete();
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(nulls, 1U);
}

TEST_F(LeakReport, StackOfSixLinesPrintsItsHeadingAlone) {
    gDebugHelp.steps = 5 + 6;
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0x10), 3);
    tracer->Delete();
    EXPECT_TRUE(mFile.Text().ends_with(":\n\t*CallStack when RefCount = 3:\n")) << mFile.Text();
}

TEST_F(LeakReport, StackOfSevenLinesPrintsOne) {
    gDebugHelp.steps = 5 + 7;
    RefCountCallStackTracer* tracer = Tracer();
    tracer->RecordRefCount(Object(0x10), 3);
    tracer->Delete();
    EXPECT_TRUE(mFile.Text().ends_with(" = 3:\n\t\t" + Line("0C") + "\n")) << mFile.Text();
}

TEST_F(LeakReport, SecondTracerAppends) {
    Tracer()->Delete();
    const std::string first = mFile.Text();
    RefCountCallStackTracer* tracer = Tracer();
    tracer->ReportLeaks();
    tracer->Delete();
    EXPECT_EQ(mFile.Text(), first + first + first);
}

TEST_F(LeakReport, FileIsThereFromTheTracersBirth) {
    std::remove(mFile.Path());
    RefCountCallStackTracer* tracer = Tracer();
    EXPECT_EQ(access(mFile.Path(), F_OK), 0);
    tracer->Delete();
}

TEST_F(LeakReport, FileThatCannotBeOpenedSilencesTheDebuggerToo) {
    for (const char* path : {"/no/such/directory/report", "", static_cast<const char*>(nullptr)}) {
        RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer("Nodes"_w, path);
        tracer->RecordRefCount(Object(0x10), 1);
        tracer->Delete();
    }
    EXPECT_TRUE(gDebugOutput.empty());
}

TEST_F(LeakReport, LabelBeyondAsciiIsUtf8InTheFile) {
    const unsigned short label[] = {0xE9, 0x4E2D, 0xD800, 0};
    CreateRefCountCallStackTracer(label, mFile.Path())->Delete();
    EXPECT_NE(mFile.Text().find("******<\xC3\xA9\xE4\xB8\xAD\xEF\xBF\xBD>: "), std::string::npos);
}

TEST_F(LeakReport, TracedStackBeginsAtLineFive) {
    TraceCallStack(mFile.Path(), "here"_w);
    EXPECT_EQ(mFile.Text(),
              "**<here>**:\n\t" + Line("0B") + "\n\t" + Line("0C") + "\n\t" + Line("0D") + "\n");
    EXPECT_TRUE(gDebugOutput.empty());
}

TEST_F(LeakReport, TracedStackOfFiveLinesIsItsHeading) {
    gDebugHelp.steps = 5 + 5;
    TraceCallStack(mFile.Path(), "here"_w);
    TraceCallStack(mFile.Path(), nullptr);
    EXPECT_EQ(mFile.Text(), "**<here>**:\n**<>**:\n");
}

TEST_F(LeakReport, TraceIntoAFileThatCannotBeOpenedDoesNothing) {
    TraceCallStack("/no/such/directory/report", "here"_w);
    TraceCallStack(nullptr, "here"_w);
}

TEST(LeakReportOutput, MakesTwoCallsTheSecondWithTheLineEnd) {
    gDebugOutput.clear();
    OutputDebugString("wide"_w);
    OutputDebugString("narrow");
    const std::vector<std::string> expected = {"W:wide", "W:\r\n", "A:narrow", "A:\r\n"};
    EXPECT_EQ(gDebugOutput, expected);
}

}  // namespace
