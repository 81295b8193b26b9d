#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ChildResult;
using test::ExpectComplaint;
using test::ZBase;

constexpr char kForms[] =
    "library     0011223366774455BBAA9988FFEEDDCC\n"
    "plain       00112233-4455-6677-8899-AABBCCDDEEFF\n"
    "braces      {00112233-4455-6677-8899-AABBCCDDEEFF}\n"
    "bytes       33221100554477668899AABBCCDDEEFF\n";

TEST(GuidCommand, ShowsAnyFormInAllForms) {
    for (const char* text : {"0011223366774455BBAA9988FFEEDDCC", "00112233-4455-6677-8899-aabbccddeeff",
                             "{00112233-4455-6677-8899-AABBCCDDEEFF}"}) {
        const ChildResult child = ZBase({"guid", text});
        EXPECT_EQ(child.output, kForms);
        EXPECT_EQ(child.exitCode, 0);
    }
}

TEST(GuidCommand, MakesANewOneEachTime) {
    const std::string first = ZBase({"guid"}).output;
    EXPECT_EQ(first.size(), std::string(kForms).size());
    EXPECT_NE(ZBase({"guid"}).output, first);
}

TEST(GuidCommand, RefusesAnythingElse) {
    for (const char* text : {"x", "{", "0011223366774455BBAA9988FFEEDDCG", "\xFF"}) {
        ExpectComplaint(ZBase({"guid", text}), 1, "is no identifier");
    }
}

}  // namespace
