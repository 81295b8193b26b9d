#include <gtest/gtest.h>

#include <iconv.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Sanitizers.h"
#include "tests/support/ScratchFolder.h"
#include "tests/tools/ZBaseCommand.h"

// Beside iconv, and with limits of this system.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;
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

class TextCommandPeers : public test::ScratchFolder {};

TEST_F(TextCommandPeers, FileOfAnySizeTakesLittleMemory) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer's own memory counts";
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

TEST_F(TextCommandPeers, FileMayBeConvertedInItsPlace) {
    const std::string text = std::string(200'000, 'x') + "\u20AC";
    const std::string file = Write("both", text);
    EXPECT_EQ(ZBase({"text", file, "--to", "utf16le", "-o", file}).exitCode, 0);
    EXPECT_TRUE(ReadAll(file) == Iconv(text, "UTF-8", "UTF-16LE"));
    EXPECT_EQ(ZBase({"text", Write("empty", ""), "--to", "utf8", "-o", mFolder / "new"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "new"));
}

// Every locale of the C library is named in its own script.
TEST_F(TextCommandPeers, TextsInManyScriptsGoThereAndBack) {
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
