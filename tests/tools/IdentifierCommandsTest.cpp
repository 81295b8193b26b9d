#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace {

using test::ChildResult;

ChildResult ZBase(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), ZBASE_COMMAND);
    return test::RunChild(arguments, {"LC_ALL=C.UTF-8"});
}

constexpr char kForms[] =
    "library     0011223366774455BBAA9988FFEEDDCC\n"
    "plain       00112233-4455-6677-8899-AABBCCDDEEFF\n"
    "braces      {00112233-4455-6677-8899-AABBCCDDEEFF}\n"
    "bytes       33221100554477668899AABBCCDDEEFF\n";

void ExpectRefusal(const std::vector<std::string>& arguments, const std::string& what) {
    const ChildResult child = ZBase(arguments);
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.errors.find('\n'), child.errors.size() - 1) << child.errors;
    EXPECT_NE(child.errors.find(what), std::string::npos) << child.errors;
}

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
        ExpectRefusal({"guid", text}, "is no identifier");
    }
}

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
    ExpectRefusal({"sid", "S-1-x-18"}, "is read as S-1-0-18");
    ExpectRefusal({"sid", "S-1-5"}, "one without sub-authorities");
    ExpectRefusal({"sid", "nonsense"}, "is no security identifier");
    ExpectRefusal({"sid", "01020000000000051200000"}, "is no security identifier");
    ExpectRefusal({"sid", "010200000000000512000000"}, "is not as long");
    ExpectRefusal({"sid", "01"}, "is not as long");
}

TEST(HostCommand, TellsWhatTheLibrarySays) {
    const ChildResult child = ZBase({"host"});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.errors, "");
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    const std::string host = name;
    for (const std::string& line :
         {"computer    " + host.substr(0, host.find('.')) + "\n", std::string("program     zbase\n"),
          "command     " + std::string(ZBASE_COMMAND) + " host\n", std::string("locale      C.UTF-8\n"),
          std::string("page size   4.00KB\n"), std::string("libZBase.so")}) {
        EXPECT_NE(child.output.find(line), std::string::npos) << line << child.output;
    }
}

}  // namespace
