// The choice of the implementation is made once for a process, so each case has one of its own.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Buffers.h"
#include "tests/support/ChildProcess.h"

namespace {

std::string After(std::vector<std::string> steps) {
    steps.insert(steps.begin(), test::ChildProgram("BufferChoiceProbe"));
    return test::RunChild(steps).output;
}

TEST(CreateBuffer, IsUndecidedUntilTheFlagsAreInitialized) {
    EXPECT_EQ(After({"choice", "create", "choice"}), "0 single 0 ");
}

TEST(CreateBuffer, FirstCallAfterInitializationDecidesForGood) {
    EXPECT_EQ(After({"create", "initialize", "create", "choice", "off", "create", "choice"}),
              "single lockfree 2 lockfree 2 ");
}

TEST(CreateBuffer, AskingDecidesAsMakingDoes) {
    EXPECT_EQ(After({"initialize", "choice", "off", "choice", "create"}), "2 2 lockfree ");
}

TEST(CreateBuffer, FlagThatIsOffChoosesTheSingleThreadBuffer) {
    EXPECT_EQ(After({"off", "initialize", "create", "choice", "on", "create", "choice"}),
              "single 1 single 1 ");
}

TEST(CreateBuffer, FlagBeforeInitializationDecidesNothing) {
    EXPECT_EQ(After({"on", "create", "choice"}), "single 0 ");
}

TEST(CreateBuffer, BothFormsPassTheirArgumentsOn) {
    test::BufferPtr plain(ZBase::CreateBuffer(2, 3, 512, true));
    EXPECT_EQ(plain->GetTotalBytes(), 4096u);
    test::BufferPtr governed(ZBase::CreateBuffer(2, 3, nullptr, 512, false));
    EXPECT_EQ(governed->GetTotalBytes(), 1024u);
    governed->Allocate(1024);
    governed->Allocate(8);
    EXPECT_EQ(governed->GetTotalBytes(), 1024u + 3 * 512);
}

}  // namespace
