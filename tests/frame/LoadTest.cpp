#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

// Effects of the library's load and unload in other processes.

namespace {

using test::ChildProgram;
using test::ChildResult;
using test::RunChild;

const char kLoad[] =
    "setlocale LC_CTYPE\n"
    "getenv ZENT_BUFFER_BLOCK_SIZE\n"
    "getenv ZENT_BUFFER_DYNAMIC_GROW_LIMIT\n"
    "sysconf page size\n"
    "setlocale LC_ALL\n";
const char kUnload[] =
    "release process locale\n"
    "release container path\n";

TEST(Load, HappensInItsOrderAndUnloadInReverse) {
    const ChildResult child = RunChild({ChildProgram("LoadProbe"), ZBASE_LIBRARY, "1"});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output, std::string(kLoad) + "loaded \n" + kUnload + "unloaded \n");
}

TEST(Load, HappensAnewEachTime) {
    const ChildResult child = RunChild({ChildProgram("LoadProbe"), ZBASE_LIBRARY, "2"});
    const std::string once = std::string(kLoad) + "loaded \n" + kUnload + "unloaded \n";
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output, once + once);
}

TEST(Load, ComesBeforeMainOfALinkedProgramAndUnloadAfterIt) {
    const ChildResult child = RunChild({ChildProgram("LinkedProbe")});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output, std::string(kLoad) + "main \n" + kUnload);
}

TEST(Load, ConstructsItsObjectsInTheirPlacesAndReleasesThemInReverse) {
    const ChildResult child = RunChild({ChildProgram("LoadOrderProbe")});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output,
              "setlocale LC_CTYPE\n"
              "getenv ZENT_BUFFER_BLOCK_SIZE\n"
              "getenv ZENT_BUFFER_DYNAMIC_GROW_LIMIT\n"
              "sysconf page size\n"
              "construct feature flags\n"
              "construct call stack lock\n"
              "construct tracer lock\n"
              "construct debug help\n"
              "setlocale LC_ALL\n"
              "main \n"
              "release process locale\n"
              "release debug help\n"
              "release tracer lock\n"
              "release call stack lock\n"
              "release feature flags\n"
              "release container path\n");
}

std::string LocalesAfterLoad(const std::string& userLocale) {
    return RunChild({ChildProgram("LocaleProbe")}, {"LC_ALL=" + userLocale}).output;
}

TEST(Load, MovesTheWholeProcessToTheLocaleOfTheUser) {
    EXPECT_EQ(LocalesAfterLoad("C.UTF-8"), "[C.UTF-8] [C.UTF-8]\n");
    EXPECT_EQ(LocalesAfterLoad("C"), "[C] [C]\n");
}

TEST(Load, GoesOnInALocaleThatTheSystemRefuses) {
    EXPECT_EQ(LocalesAfterLoad("no_SUCH.locale"), "[] [C]\n");
}

struct SettingCase {
    const char* name;
    std::vector<std::string> environment;
    const char* blockSize;
    const char* growLimit;
};

class LoadedBufferSettings : public testing::TestWithParam<SettingCase> {};

TEST_P(LoadedBufferSettings, AreReadAtLoad) {
    std::vector<std::string> environment = {"ZENT_BUFFER_BLOCK_SIZE", "ZENT_BUFFER_DYNAMIC_GROW_LIMIT"};
    for (const std::string& variable : GetParam().environment) environment.push_back(variable);
    const ChildResult child = RunChild({ChildProgram("SettingsProbe")}, environment);
    EXPECT_EQ(child.output, std::string(GetParam().blockSize) + " " + GetParam().growLimit + " 4096 1\n");
}

SettingCase BlockSize(const char* name, const char* value, const char* expected) {
    return {name, {std::string("ZENT_BUFFER_BLOCK_SIZE=") + value}, expected, "268435456"};
}

SettingCase GrowLimit(const char* name, const char* value, const char* expected) {
    return {name, {std::string("ZENT_BUFFER_DYNAMIC_GROW_LIMIT=") + value}, "4096", expected};
}

INSTANTIATE_TEST_SUITE_P(
    Rows, LoadedBufferSettings,
    testing::Values(SettingCase{"NeitherSet", {}, "4096", "268435456"},
                    BlockSize("BlockSize", "8192", "8192"), BlockSize("BlockSizeZero", "0", "0"),
                    BlockSize("BlockSizeWithLetters", "512KB", "512"),
                    BlockSize("BlockSizeNoNumber", "big", "4096"), BlockSize("BlockSizeEmpty", "", "4096"),
                    BlockSize("BlockSizeNegative", "-1", "18446744073709551615"),
                    GrowLimit("BelowTheMinimum", "7", "8388608"), GrowLimit("TheMinimum", "8", "8388608"),
                    GrowLimit("AboveTheMinimum", "9", "9437184"),
                    GrowLimit("NoNumberIsTheDefault", "abc", "268435456"),
                    GrowLimit("LettersBehind", "12MB", "12582912"), GrowLimit("Zero", "0", "8388608"),
                    // -1 << 20 as an unsigned number of 64 bits
                    GrowLimit("NegativeIsEnormous", "-1", "18446744073708503040"),
                    GrowLimit("BeyondSixtyFourBits", "99999999999999999999", "268435456")),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
