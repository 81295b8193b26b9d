#include "tests/crash/CrashBench.h"
#include "tests/support/linux/FaultKinds.h"

// A translator and the crash handler in one process: a thread with a translator catches each kind of fault,
// and one without is reported.

namespace {

using test::ChildResult;

class FaultReport : public test::CrashBench, public testing::WithParamInterface<test::FaultKind> {};

TEST_P(FaultReport, IsOfTheThreadWithoutATranslatorInEitherOrder) {
    StartServer();
    Configure("", "product=probe\n");
    for (const char* first : {"translator", "handler"}) {
        const ChildResult child = Crash({first, GetParam().name}, {}, "FaultProbe");
        EXPECT_EQ(child.errors, "caught 100\n") << first;
        EXPECT_EQ(child.signal, GetParam().signal) << first;
    }
    EXPECT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_TRUE(LeftDumps().empty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, FaultReport, testing::ValuesIn(test::kFaults),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
