#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/ScratchFolder.h"
#include "tests/tools/ZBaseCommand.h"

namespace {

namespace fs = std::filesystem;
using test::ChildResult;
using test::ExpectComplaint;
using test::ZBase;

std::string ReadAll(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class TextCommand : public test::ScratchFolder {};

TEST_F(TextCommand, TellsThatAFileIsUtf8) {
    const std::string file = Write("good", "a\u00E9\u20AC\U0001F600\n");
    const ChildResult child = ZBase({"text", file});
    EXPECT_EQ(child.output, file + ": UTF-8, 11 octets, 5 characters\n");
    EXPECT_EQ(child.exitCode, 0);
}

TEST_F(TextCommand, NamesAFileWithoutControlCharacters) {
    const std::string good = Write("\x1B[2Jgood", "a");
    EXPECT_EQ(ZBase({"text", good}).output,
              (mFolder / "\\x1B[2Jgood").string() + ": UTF-8, 1 octets, 1 characters\n");
    const std::string bad = Write("\x1B[2Jbad", "\xFF");
    const std::string told = ZBase({"text", bad}).output;
    EXPECT_TRUE(told.starts_with((mFolder / "\\x1B[2Jbad").string() + ": not UTF-8 at")) << told;
}

TEST_F(TextCommand, TellsWhereAndWhyAFileIsNot) {
    const std::string file = Write("bad", "first\nse\u00E9\U0001F600\xC0\x80 more\n");
    const ChildResult child = ZBase({"text", file});
    EXPECT_EQ(
        child.output,
        file +
            ": not UTF-8 at offset 14 of 22 octets (line 2, character 5): ZBase::UTF8ToWideChar: Overlong "
            "sequence for UNICODE value U+0000.\n");
    EXPECT_EQ(child.exitCode, 1);
}

TEST_F(TextCommand, FindsAFlawBehindAnAcceptedOverlongForm) {
    const std::string file = Write("bad", "\xF0\x8F\xBF\xBD\xFF");
    EXPECT_NE(ZBase({"text", file}).output.find("at offset 4 of 5 octets (line 1, character 2)"),
              std::string::npos);
}

TEST_F(TextCommand, FindsATruncatedEnd) {
    EXPECT_NE(ZBase({"text", Write("bad", "ab\xE2\x82")}).output.find("at offset 2 of 4"), std::string::npos);
}

TEST_F(TextCommand, TakesEmptyFilesAndZeros) {
    EXPECT_EQ(ZBase({"text", Write("empty", "")}).output,
              (mFolder / "empty").string() + ": UTF-8, 0 octets, 0 characters\n");
    const std::string file = Write("zeros", std::string("a\0b\0", 4));
    EXPECT_EQ(ZBase({"text", file}).output, file + ": UTF-8, 4 octets, 4 characters\n");
    EXPECT_EQ(ZBase({"text", file, "--to", "utf16le"}).output, std::string("a\0\0\0b\0\0\0", 8));
    EXPECT_EQ(ZBase({"text", file, "--to", "ascii"}).output, std::string("a\0b\0", 4));
}

TEST_F(TextCommand, ReadsTheStandardInput) {
    EXPECT_EQ(ZBase({"text", "-"}, "abc").output, "-: UTF-8, 3 octets, 3 characters\n");
}

TEST_F(TextCommand, ConvertsStrictlyOrWithReplacement) {
    const std::string file = Write("bad", "a\xFFz");
    ExpectComplaint(ZBase({"text", file, "--to", "utf16le"}), 1,
                    "ZBase::UTF8ToWideChar: Invalid octet 0xFF.");
    EXPECT_EQ(ZBase({"text", file, "--to", "utf8", "--replace"}).output, "a\uFFFDz");
    EXPECT_EQ(ZBase({"text", Write("wide", "a\u00E9"), "--to", "ascii", "--replace"}).output, "a?");
    ExpectComplaint(ZBase({"text", Write("wide", "a\u00E9"), "--to", "ascii"}), 1,
                    "Non-ASCII codepoint U+00E9 at offset 1.");
}

TEST_F(TextCommand, ConvertsToTheLocale) {
    EXPECT_EQ(ZBase({"text", Write("wide", "a\u00E9"), "--to", "locale"}).output, "a\u00E9");
}

TEST_F(TextCommand, WritesToAFile) {
    const std::string out = (mFolder / "out").string();
    EXPECT_EQ(ZBase({"text", Write("in", "a\u20AC"), "--to", "utf16le", "--output", out}).exitCode, 0);
    EXPECT_EQ(ReadAll(out), std::string("a\0\xAC\x20", 4));
}

TEST_F(TextCommand, ComplainsWhenItsOutputIsADirectory) {
    ExpectComplaint(ZBase({"text", Write("in", "a"), "--to", "utf8", "--output", mFolder.string()}), 1,
                    "Is a directory");
}

TEST_F(TextCommand, SizeOfAFlawedFileIsThatOfTheWhole) {
    const std::string file = Write("bad", "\xFF" + std::string(200'000, 'x'));
    EXPECT_NE(ZBase({"text", file}).output.find("at offset 0 of 200001 octets"), std::string::npos);
    EXPECT_NE(ZBase({"text", "-"}, "\xFF" + std::string(200'000, 'x')).output.find("of 200001 octets"),
              std::string::npos);
}

TEST_F(TextCommand, FlawBehindManyPiecesLeavesNothingOfThemOnTheOutput) {
    const std::string file = Write("bad", std::string(200'000, 'x') + "\xE9");
    ExpectComplaint(ZBase({"text", file, "--from", "ascii", "--to", "utf8"}), 1,
                    "Invalid ASCII character 0xE9 at offset 200000.");
    const std::string out = Write("out", "as it was");
    ExpectComplaint(ZBase({"text", file, "--to", "utf16le", "-o", out}), 1, "ZBase::UTF8ToWideChar: ");
    EXPECT_EQ(ReadAll(out), "as it was");
    ExpectComplaint(ZBase({"text", file, "--to", "utf16le", "-o", (mFolder / "new").string()}), 1,
                    "ZBase::UTF8ToWideChar: ");
    EXPECT_FALSE(fs::exists(mFolder / "new"));
}

TEST_F(TextCommand, RefusesHalfAUnit) {
    ExpectComplaint(ZBase({"text", Write("odd", "abc"), "--from", "utf16le", "--to", "utf8"}), 1,
                    "half a UTF-16 unit");
}

TEST_F(TextCommand, RefusesALoneSurrogate) {
    ExpectComplaint(ZBase({"text", Write("lone", "\x3D\xD8"), "--from", "utf16le", "--to", "utf8"}), 1,
                    "U+D83D");
}

}  // namespace
