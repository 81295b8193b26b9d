#include <Base/diagnostics/RefCountCallStackTracer.h>
#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/WideLiteral.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Stacks.h"
#include "tests/support/TemporaryFile.h"

using test::StayHere;
using test::TemporaryFile;
using namespace ZBase;

// Reference-counted objects that report each change to a tracer.
class TracedNode : public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit TracedNode(RefCountCallStackTracer& tracer) : mTracer(tracer) {}
    void AddRef() override {
        ReferenceCountedImpl::AddRef();
        mTracer.RecordRefCount(this, ++mCount);
        StayHere();
    }
    void Release() override {
        mTracer.RecordRefCount(this, --mCount);
        ReferenceCountedImpl::Release();
    }

private:
    RefCountCallStackTracer& mTracer;
    long mCount = 0;
};

// The innermost six lines of each stack are left out of the report, so the user is some calls away.
[[gnu::noinline]] void TakeThrough(TracedNode* node, int calls) {
    if (calls != 0)
        TakeThrough(node, calls - 1);
    else
        node->AddRef();
    StayHere();
}

[[gnu::noinline]] TracedNode* ForgetsToRelease(TracedNode* node) {
    TakeThrough(node, 5);
    StayHere();
    return node;
}

[[gnu::noinline]] void ReleasesAsItShould(TracedNode* node) {
    TakeThrough(node, 5);
    node->Release();
    StayHere();
}

namespace {

TEST(LeakTracing, NamesTheFunctionThatLeaked) {
    const TemporaryFile file;
    RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer("Nodes"_w, file.Path());
    std::vector<TracedNode*> leaked;
    for (int i = 0; i != 5; ++i) {
        auto* node = new TracedNode(*tracer);
        if (i == 3)
            leaked.push_back(ForgetsToRelease(node));
        else
            ReleasesAsItShould(node);
    }
    tracer->ReportLeaks();
    const std::string report = file.Text();
    EXPECT_NE(report.find(">: Number of leaked objects = 1\n"), std::string::npos) << report;
    EXPECT_NE(report.find("\tSym:[ForgetsToRelease"), std::string::npos) << report;
    EXPECT_EQ(report.find("ReleasesAsItShould"), std::string::npos) << report;
    for (TracedNode* node : leaked) node->Release();
    tracer->Delete();
    EXPECT_TRUE(file.Text().ends_with(">: Number of leaked objects = 0\n"));
}

// The write calls of this process so far; 0 if /proc does not show them.
unsigned long WritingCalls() {
    std::ifstream file("/proc/self/io");
    for (std::string name; file >> name;) {
        if (name != "syscw:") continue;
        unsigned long count = 0;
        file >> count;
        return count;
    }
    return 0;
}

TEST(LeakTracing, AStackGoesOutInOnePieceHoweverManyLinesItHas) {
    if (WritingCalls() == 0) GTEST_SKIP() << "the system does not count the calls of a process";
    const TemporaryFile file;
    RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer("Nodes"_w, file.Path());
    constexpr unsigned long kObjects = 100;
    std::vector<TracedNode*> nodes;
    for (unsigned long i = 0; i != kObjects; ++i) {
        nodes.push_back(new TracedNode(*tracer));
        TakeThrough(nodes.back(), 30);
    }
    const unsigned long before = WritingCalls();
    tracer->ReportLeaks();
    EXPECT_LE(WritingCalls() - before, 2 * kObjects);
    const std::string report = file.Text();
    EXPECT_GE(std::count(report.begin(), report.end(), '\n'), 25 * static_cast<long>(kObjects));
    for (TracedNode* node : nodes) node->Release();
    tracer->Delete();
}

TEST(LeakTracing, ThreadsRecordAtOnce) {
    const TemporaryFile file;
    RefCountCallStackTracer* tracer = CreateRefCountCallStackTracer("Nodes"_w, file.Path());
    std::vector<std::thread> threads;
    for (std::uintptr_t i = 1; i != 5; ++i) {
        threads.emplace_back([tracer, i] {
            for (long count = 20; count >= (i == 2 ? 1 : 0); --count)
                tracer->RecordRefCount(reinterpret_cast<void*>(i), count);
        });
    }
    for (std::thread& thread : threads) thread.join();
    tracer->Delete();
    const std::string report = file.Text();
    EXPECT_NE(report.find("= 1\n"), std::string::npos);
    EXPECT_NE(report.find("InstanceLeak = 0x0000000000000002:\n"), std::string::npos);
}

TEST(LeakTracing, LinesOfTwoProcessesInOneFileStayWhole) {
    const TemporaryFile file;
    std::vector<std::thread> runs;
    for (int i = 0; i != 2; ++i) {
        runs.emplace_back([&] { test::RunChild({test::ChildProgram("LeakProbe"), file.Path()}); });
    }
    for (std::thread& run : runs) run.join();
    const std::string report = file.Text();
    std::size_t headings = 0;
    for (std::size_t start = 0; start != report.size();) {
        const std::size_t end = report.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        const std::string line = report.substr(start, end - start);
        const bool isStackLine = line.starts_with("\t\t") && test::Parse(line.substr(2)).isWhole;
        EXPECT_TRUE(isStackLine || line.starts_with("Proc<") ||
                    line.starts_with("\t*CallStack when RefCount = "))
            << line;
        headings += line.ends_with(">: Number of leaked objects = 20");
        start = end + 1;
    }
    EXPECT_EQ(headings, 2U);
}

}  // namespace
