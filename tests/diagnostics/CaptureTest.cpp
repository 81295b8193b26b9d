#include <gtest/gtest.h>

#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"

// Captures where locks are held, signals blocked or processes forked; see CaptureProbe.

namespace {

std::string Probe(const char* what) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("CaptureProbe"), what});
    EXPECT_EQ(child.exitCode, 0) << "signal " << child.signal << child.errors;
    return child.output;
}

class Capture : public testing::Test {
protected:
    void SetUp() override {
        if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has a heap of its own, and holds signals back";
    }
};

TEST_F(Capture, OfAThreadThatForksNeverWaitsForTheLocksThatItHolds) {
    EXPECT_EQ(Probe("forking"), "0 empty\n");
}

TEST_F(Capture, OfAThreadInAHeapOfTheProgramsOwnIsNeverRefused) {
    EXPECT_EQ(Probe("heap"), "0 empty\n");
}

TEST_F(Capture, OfAThreadInsideALookUpIsNeverRefused) {
    EXPECT_EQ(Probe("looking up"), "0 empty\n");
}

TEST_F(Capture, OfAThreadThatWaitsStopsItAtMostTwice) {
    std::string expected;
    for (int i = 0; i != 7; ++i) expected += "lines, stops few\n";
    EXPECT_EQ(Probe("waiting"), expected);
}

TEST_F(Capture, HandsNoSignalToAThreadThatBlocksOrAwaitsAll) {
    EXPECT_EQ(Probe("masked"), "0 sent, 0 handed, 0 pending\n");
}

TEST_F(Capture, WorksInEachChildOfAForkBesideOthers) {
    EXPECT_EQ(Probe("children"), "40 of 40\n");
}

TEST_F(Capture, IsNotAloneInThatFlagsAndKeysAreSetBesideAFork) {
    EXPECT_EQ(Probe("setting"), "40 of 40\n");
}

TEST_F(Capture, ByAThreadThatIsCancelledLetsTheNextOneIn) {
    EXPECT_EQ(Probe("cancelled"), "2 captured, cancelled, lines\n");
}

TEST_F(Capture, AmongTwentyThousandMappingsListsThemNotOnce) {
    EXPECT_EQ(Probe("mappings"), "lines, 0 listings\n");
}

}  // namespace
