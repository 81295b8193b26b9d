#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ExpectComplaint;
using test::ZBase;

TEST(SidCommand, ShowsTextAndBytes) {
    const std::string expected = "text        S-1-5-18\nbytes       010100000000000512000000\n";
    EXPECT_EQ(ZBase({"sid", "S-1-5-18"}).output, expected);
    EXPECT_EQ(ZBase({"sid", "010100000000000512000000"}).output, expected);
}

TEST(SidCommand, RecordWithoutSubAuthoritiesHasNoText) {
    EXPECT_EQ(ZBase({"sid", "0100000000000005"}).output, "text        \nbytes       0100000000000005\n");
}

TEST(SidCommand, MakesANewOneEachTime) {
    const std::string first = ZBase({"sid"}).output;
    EXPECT_EQ(first.rfind("text        S-1-5-21-", 0), 0u) << first;
    EXPECT_NE(ZBase({"sid"}).output, first);
}

TEST(SidCommand, RefusesWhatDoesNotComeBack) {
    ExpectComplaint(ZBase({"sid", "S-1-x-18"}), 1, "is read as S-1-0-18");
    ExpectComplaint(ZBase({"sid", "S-1-5"}), 1, "one without sub-authorities");
    ExpectComplaint(ZBase({"sid", "nonsense"}), 1, "is no security identifier");
    ExpectComplaint(ZBase({"sid", "01020000000000051200000"}), 1, "is no security identifier");
    ExpectComplaint(ZBase({"sid", "010200000000000512000000"}), 1, "is not as long");
    ExpectComplaint(ZBase({"sid", "01"}), 1, "is not as long");
}

}  // namespace
