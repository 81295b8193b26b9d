// Calls that overlap on a buffer for one thread. Each case runs in a process of its own, whose standard
// output is a pipe.

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "tests/support/ChildProcess.h"

namespace {

const std::string kFatal =
    "Server crash because multithreading issue in BufferImplementation is detected, please send the core "
    "file to "
    "tech support.\n";
const std::string kTolerated = "Detect multithreading issue in BufferImplementation.\n";

test::ChildResult Overlap(const std::string& mode, const std::string& setting) {
    return test::RunChild({test::ChildProgram("OverlapProbe"), mode}, {setting});
}

class OverlapDetector : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(EveryWay, OverlapDetector,
                         testing::Values("governor", "contract", "ensure", "threads"),
                         [](const auto& tested) { return std::string(tested.param); });

TEST_P(OverlapDetector, EndsTheProcessWithTheLineWritten) {
    for (const char* setting :
         {"ZENT_BUFERROR_ABORT", "ZENT_BUFERROR_ABORT=no", "ZENT_BUFERROR_ABORT=", "ZENT_BUFERROR_ABORT=NOT",
          "ZENT_BUFERROR_ABORT= NO", "ZENT_BUFERROR_ABORT=YES"}) {
        const test::ChildResult result = Overlap(GetParam(), setting);
        EXPECT_EQ(result.signal, SIGABRT) << setting;
        EXPECT_EQ(result.output, kFatal) << setting;
    }
}

TEST_P(OverlapDetector, IsToleratedOnlyByNo) {
    const test::ChildResult result = Overlap(GetParam(), "ZENT_BUFERROR_ABORT=NO");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output.substr(0, kTolerated.size()), kTolerated);
    EXPECT_NE(result.output.find("done"), std::string::npos);
}

// The first of two tolerated calls to leave marks the buffer as free: of the ten that the second thread makes
// while the first is inside, only the first is reported.
TEST(OverlapDetectorLines, AfterAToleratedOverlapTheDetectorIsBlindUntilTheCallEnds) {
    EXPECT_EQ(Overlap("threads", "ZENT_BUFERROR_ABORT=NO").output, kTolerated + "done 176\n");
}

// What the variable says can't be read there.
TEST(OverlapDetectorLines, WithoutAHeapTheProcessEndsToo) {
    const test::ChildResult result = Overlap("noheap", "ZENT_BUFERROR_ABORT");
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.output, kFatal);
}

TEST(OverlapDetectorLines, ThreadsThatTakeTurnsAreNotNoticed) {
    const test::ChildResult result = Overlap("turns", "ZENT_BUFERROR_ABORT");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "done 1600\n");
}

}  // namespace
