#include <csignal>

#include "tests/crash/CrashBench.h"

// The reason of a process's end arrives as crash keys.

namespace {

using test::ChildResult;
using test::CrashKeys;

class LastWords : public test::CrashBench {
protected:
    // The keys of the report that a probe leaves.
    CrashKeys Of(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment = {}) {
        StartServer();
        Configure();
        mChild = Crash(arguments, environment, "LastWordsProbe");
        EXPECT_EQ(mChild.signal, SIGABRT);
        EXPECT_EQ(ReceivedDumps().size(), 1u);
        return ReceivedKeys(1);
    }

    ChildResult mChild{};
};

TEST_F(LastWords, OfAMessageAreItsTree) {
    const CrashKeys keys = Of({"message"});
    EXPECT_EQ(keys.at("exception"),
              "Nothing could be loaded. (Server message 104)\tnames.txt is not text. (Server message 103)");
    EXPECT_EQ(keys.at("exception_type"), "ZBase::Message");
    EXPECT_EQ(keys.size(), 2u);
}

TEST_F(LastWords, OfAnExceptionAreThoseOfTheOnesNestedInItToo) {
    const CrashKeys keys = Of({"nested"});
    EXPECT_EQ(keys.at("exception"), "the outer one");
    EXPECT_TRUE(keys.contains("the inner one"));  // the receiver's next line
    EXPECT_NE(keys.at("exception_type").find("std::runtime_error"), std::string::npos);
}

TEST_F(LastWords, EndAtADepthOfSixtyFour) {
    const CrashKeys keys = Of({"deep"});
    EXPECT_EQ(keys.at("exception"), "level 200");
    EXPECT_TRUE(keys.contains("level 136"));  // the receiver's lines, an exception each
    EXPECT_FALSE(keys.contains("level 135"));
}

TEST_F(LastWords, OfAnyThreadArrive) {
    EXPECT_EQ(Of({"thread"}).at("exception"), "the outer one");
}

TEST_F(LastWords, OfWhatHasNoTextAreItsType) {
    EXPECT_EQ(Of({"number"}), (CrashKeys{{"exception_type", "int"}}));
}

TEST_F(LastWords, OfAProcessArriveBehindThoseOfManyChildrenThatShareItsMemory) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"after-vforks"}, {}, "LastWordsProbe").signal, SIGABRT);
    EXPECT_EQ(ReceivedDumps().size(), 6u);
    EXPECT_EQ(ReceivedKeys(6).at("exception"), "the outer one");
}

TEST_F(LastWords, OfAThrownTextAreThatText) {
    EXPECT_EQ(Of({"text"}), (CrashKeys{{"exception", "a text"}, {"exception_type", "char const*"}}));
}

TEST_F(LastWords, OfAWantOfMemoryArrive) {
    EXPECT_EQ(Of({"no-memory"}),
              (CrashKeys{{"exception", "std::bad_alloc"}, {"exception_type", "std::bad_alloc"}}));
}

TEST_F(LastWords, AreCutWhereTheyAreTooLong) {
    const CrashKeys keys = Of({"long"});
    EXPECT_GT(keys.at("exception").size(), 8000u);
    EXPECT_LT(keys.at("exception").size(), 16384u);
    EXPECT_EQ(keys.at("exception_type"), "std::runtime_error");
}

TEST_F(LastWords, WithoutAnExceptionSaySo) {
    EXPECT_EQ(Of({"terminate"}), (CrashKeys{{"terminate", "called without an exception"}}));
}

TEST_F(LastWords, WhereTheHeapMayBeLockedNeedNone) {
    EXPECT_EQ(Of({"in-allocator"}), (CrashKeys{{"exception_type", "N5ZBase7MessageE"}}));
}

TEST_F(LastWords, OfAnAssertionAreItsText) {
    const std::string text = Of({"assert"}).at("abort_message");
    EXPECT_NE(text.find("Somewhere.cpp:7: Check: Assertion `all is well' failed."), std::string::npos)
        << text;
}

TEST_F(LastWords, OfADamagedHeapAreWhatItSays) {
    EXPECT_EQ(Of({"free-twice"}), (CrashKeys{{"abort_message", "double free or corruption (!prev)"}}));
}

TEST_F(LastWords, GiveWayToACrashKeyOfTheirName) {
    EXPECT_EQ(Of({"text", "exception", "mine"}),
              (CrashKeys{{"exception", "mine"}, {"exception_type", "char const*"}}));
}

TEST_F(LastWords, LeaveTheHostsOwnHandlerItsSay) {
    EXPECT_EQ(Of({"text"}, {"PROBE_HOST_HANDLER=1"}).at("exception"), "a text");
    EXPECT_EQ(mChild.output, "the host's own\n");
}

TEST_F(LastWords, OfADumpOnDemandAreNone) {
    StartServer();
    Configure();
    Crash({"demand"}, {}, "LastWordsProbe");
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"reason", "hanging"}}));
}

}  // namespace
