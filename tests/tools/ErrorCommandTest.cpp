#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ChildResult;
using test::ExpectComplaint;
using test::ZBase;

TEST(ErrorCommand, TellsWhatANumberMeansInEachDomain) {
    const ChildResult child = ZBase({"error", "5"});
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_EQ(child.output,
              "5  0x00000005\n"
              "  10   Windows Standard C Library  EIO              Input/output error\n"
              "  100  Windows API                 -                Access is denied.\n"
              "  101  Windows Standard Exception  -                -\n");
}

TEST(ErrorCommand, TakesHexadecimal) {
    const ChildResult child = ZBase({"error", "0xC0000005"});
    EXPECT_EQ(child.output.rfind("-1073741819  0xC0000005\n", 0), 0u);
    EXPECT_NE(child.output.find("EXCEPTION_ACCESS_VIOLATION"), std::string::npos);
}

TEST(ErrorCommand, OfAnUnknownNumberFails) {
    EXPECT_EQ(ZBase({"error", "123456789"}).exitCode, 1);
}

TEST(ErrorCommand, RefusesWhatIsNoNumber) {
    for (const char* code : {"five", "5x", "0x", "4294967296", "-2147483649", "99999999999999999999"}) {
        ExpectComplaint(ZBase({"error", code}), 1, "is neither a number of 32 bits");
    }
}

TEST(ErrorCommand, TakesASymbolInPlaceOfItsNumber) {
    EXPECT_EQ(ZBase({"error", "ENOENT"}).output, ZBase({"error", "2"}).output);
    EXPECT_EQ(ZBase({"error", "exception_access_violation"}).output, ZBase({"error", "0xC0000005"}).output);
    EXPECT_EQ(ZBase({"error", "EXCEPTION_BREAKPOINT"}).output, ZBase({"error", "0x80000003"}).output);
    ExpectComplaint(ZBase({"error", "ENOTHING"}), 1, "\"ENOTHING\" is neither a number");
}

}  // namespace
