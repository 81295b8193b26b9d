#include <gtest/gtest.h>

#include <iconv.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Sanitizers.h"
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

std::string Iconv(const std::string& text, const char* from, const char* to) {
    const iconv_t converter = iconv_open(to, from);
    std::string converted(4 * text.size() + 16, '\0');
    char* in = const_cast<char*>(text.data());
    char* out = converted.data();
    std::size_t inLeft = text.size();
    std::size_t outLeft = converted.size();
    const std::size_t result = iconv(converter, &in, &inLeft, &out, &outLeft);
    iconv_close(converter);
    if (result == static_cast<std::size_t>(-1)) throw std::runtime_error("iconv refuses the text");
    converted.resize(converted.size() - outLeft);
    return converted;
}

class TextCommand : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zbase-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    void TearDown() override { fs::remove_all(mFolder); }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(mFolder / name, std::ios::binary) << content;
        return mFolder / name;
    }

    fs::path mFolder;
};

TEST_F(TextCommand, TellsThatAFileIsUtf8) {
    const std::string file = Write("good", "a\u00E9\u20AC\U0001F600\n");
    const ChildResult child = ZBase({"text", file});
    EXPECT_EQ(child.output, file + ": UTF-8, 11 octets, 5 characters\n");
    EXPECT_EQ(child.exitCode, 0);
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
    EXPECT_EQ(ZBase({"text", Write("wide", "a\u00E9"), "--to", "locale"}).output, "a\u00E9");
}

TEST_F(TextCommand, WritesToAFile) {
    const std::string out = mFolder / "out";
    EXPECT_EQ(ZBase({"text", Write("in", "a\u20AC"), "--to", "utf16le", "--output", out}).exitCode, 0);
    EXPECT_EQ(ReadAll(out), std::string("a\0\xAC\x20", 4));
    ExpectComplaint(ZBase({"text", Write("in", "a"), "--to", "utf8", "--output", mFolder}), 1,
                    "Is a directory");
}

TEST_F(TextCommand, FileOfAnySizeTakesLittleMemory) {
    if (test::kIsSanitized) GTEST_SKIP() << "its own memory counts";
    constexpr std::uintmax_t size = std::uintmax_t{64} << 20;
    const std::string file = Write("large", "");
    fs::resize_file(file, size);
    const auto limited = [&](const std::string& arguments) {
        return test::RunChild({"/bin/bash", "-c", "ulimit -v 150000; " ZBASE_COMMAND " text " + arguments},
                              {"LC_ALL=C.UTF-8"});
    };
    const ChildResult report = limited(file);
    EXPECT_EQ(report.output, file + ": UTF-8, 67108864 octets, 67108864 characters\n") << report.errors;
    const ChildResult counted = limited("- --from utf16le --to utf8 < " + file + " | wc -c");
    EXPECT_EQ(counted.output, "33554432\n") << counted.errors;
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
    ExpectComplaint(ZBase({"text", file, "--to", "utf16le", "-o", mFolder / "new"}), 1,
                    "ZBase::UTF8ToWideChar: ");
    EXPECT_FALSE(fs::exists(mFolder / "new"));
}

TEST_F(TextCommand, FileMayBeConvertedInItsPlace) {
    const std::string text = std::string(200'000, 'x') + "\u20AC";
    const std::string file = Write("both", text);
    EXPECT_EQ(ZBase({"text", file, "--to", "utf16le", "-o", file}).exitCode, 0);
    EXPECT_TRUE(ReadAll(file) == Iconv(text, "UTF-8", "UTF-16LE"));
    EXPECT_EQ(ZBase({"text", Write("empty", ""), "--to", "utf8", "-o", mFolder / "new"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "new"));
}

TEST_F(TextCommand, RefusesHalfAUnit) {
    ExpectComplaint(ZBase({"text", Write("odd", "abc"), "--from", "utf16le", "--to", "utf8"}), 1,
                    "half a UTF-16 unit");
}

TEST_F(TextCommand, RefusesALoneSurrogate) {
    ExpectComplaint(ZBase({"text", Write("lone", "\x3D\xD8"), "--from", "utf16le", "--to", "utf8"}), 1,
                    "U+D83D");
}

// Every locale of the C library is named in its own script.
TEST_F(TextCommand, TextsInManyScriptsGoThereAndBack) {
    std::vector<fs::path> texts = {"/usr/share/games/fortunes/tang300", "/usr/share/games/fortunes/chinese"};
    int number = 0;
    for (const auto& entry : fs::directory_iterator("/usr/share/i18n/locales")) {
        if (++number % 6 == 0) texts.push_back(entry.path());
    }
    for (const auto& entry : fs::directory_iterator("/usr/share/games/fortunes/ru")) {
        if (entry.path().extension().empty()) texts.push_back(entry.path());
    }
    ASSERT_GT(texts.size(), 60u);
    const std::string wide = mFolder / "wide";
    for (const fs::path& file : texts) {
        const std::string text = ReadAll(file);
        ASSERT_FALSE(text.empty()) << file;
        ASSERT_EQ(ZBase({"text", file, "--to", "utf16le", "-o", wide}).errors, "");
        EXPECT_TRUE(ReadAll(wide) == Iconv(text, "UTF-8", "UTF-16LE")) << file;
        EXPECT_TRUE(ZBase({"text", wide, "--from", "utf16le", "--to", "utf8"}).output == text) << file;
    }
}

}  // namespace
