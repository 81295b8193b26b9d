#include <Base/diagnostics/CallStack.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/diagnostics/Recurse.h"
#include "tests/support/Stacks.h"

using test::Lines;
using test::Stack;
using test::StackLine;

// Outside of any namespace, so that its symbol is short.
[[gnu::noinline]] ZBase::CallStack* Captured() {
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    test::StayHere();
    return stack;
}

namespace {

TEST(CallStackText, HasTheFormInEachLine) {
    const Stack stack(Captured());
    for (const StackLine& line : Lines(*stack)) EXPECT_TRUE(line.isWhole);
}

TEST(CallStackText, NamesTheFunctionAndItsProgram) {
    const Stack stack(Captured());
    const StackLine line = Lines(*stack)[0];
    EXPECT_TRUE(line.symbol.starts_with("Captured")) << line.symbol;
    EXPECT_NE(line.module.find("diagnostics_tests"), std::string::npos) << line.module;
}

TEST(CallStackText, IsItsLinesWithALineFeedBetween) {
    const Stack stack(Captured());
    std::string expected;
    for (unsigned int i = 0; i != stack->GetLineCount(); ++i)
        expected += (i == 0 ? "" : "\n") + test::Narrow(stack->GetLine(i).GetText());
    EXPECT_EQ(test::Narrow(stack->ToString()), expected);
    EXPECT_EQ(test::Narrow(stack->ToString()), expected);
}

TEST(CallStackText, OfOneLineIsTheSameEachTime) {
    const Stack stack(Captured());
    const std::string first = test::Narrow(stack->GetLine(0).GetText());
    EXPECT_EQ(test::Narrow(stack->GetLine(0).GetText()), first);
}

TEST(CallStackText, HasAsManyLinesAsThereAreFrames) {
    ZBase::CallStack* captured = nullptr;
    Recurse(500, [&] { captured = Captured(); });
    const Stack stack(captured);
    EXPECT_GT(stack->GetLineCount(), 500U);
}

}  // namespace
