#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"

// Variants of debug help: missing, without an entry, failing to start, and scripted by the test. Each is put
// beside a copy of the library.

namespace {

namespace fs = std::filesystem;

using test::ChildProgram;
using test::ChildResult;
using test::RunChild;

class DebugHelp : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "debughelpXXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        mPlace = pattern;
        fs::copy_file(ZBASE_LIBRARY, mPlace / "libZBase.so.1");
    }
    void TearDown() override { fs::remove_all(mPlace); }

    void Put(const std::string& module) {
        fs::copy_file(fs::path(ZBASE_MODULES_DIR) / ("lib" + module + ".so"),
                      mPlace / "libzbase_debughelp.so");
    }

    std::string Run(std::vector<std::string> what, std::vector<std::string> settings = {}) {
        what.insert(what.begin(), ChildProgram("DebugHelpProbe"));
        settings.push_back("LD_LIBRARY_PATH=" + mPlace.string());
        const ChildResult child = RunChild(what, settings);
        EXPECT_EQ(child.exitCode, 0) << child.errors << " signal " << child.signal;
        return child.output;
    }

    std::string Module() { return (mPlace / "libzbase_debughelp.so").string(); }

    fs::path mPlace;
};

const char kFailed[] =
    "1 lines\n"
    "0x0000000000000000 0x0000000000000000 Mod:[dbghelp.dll load failed]\tSym:[(NA)]+0x0\tFile:[(NA)](0)\n";
const char kNoEntry[] = "entries 00000000000\n";
const char kAllEntries[] = "entries 11111111111\n";

TEST_F(DebugHelp, AbsentGivesStacksWithoutLinesAndNoEntry) {
    EXPECT_EQ(Run({"enumerate", "stack", "stack", "bound", "binding", "load"}),
              std::string("enumerate 0\n0 lines\n0 lines\n") + kNoEntry + "binding 000\nload 0\n");
}

TEST_F(DebugHelp, AbsentStillWalksByTheSystem) {
    EXPECT_EQ(Run({"walks", "enumerate", "walks"}), "walk 1\nenumerate 0\nwalk 1\n");
}

TEST_F(DebugHelp, StandsBesideTheLibraryWhateverDirectoryIsCurrent) {
    Put("ScriptedDebugHelp");
    // The loader finds the library by a path relative to a directory that is then left.
    const ChildResult child =
        RunChild({"/bin/sh", "-c", "cd " + mPlace.string() + " && exec \"$0\" chdir / stack",
                  ChildProgram("DebugHelpProbe")},
                 {"LD_LIBRARY_PATH=.", "ZBASE_TEST_STEPS=6"});
    EXPECT_TRUE(child.output.starts_with("1 lines\n")) << child.output << child.errors;
}

TEST_F(DebugHelp, IsOpenedWhereNoDescriptorIsFreeAndTheLimitStays) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs descriptors itself";
    Put("ScriptedDebugHelp");
    const std::string output = Run({"limit", "stack", "limit"}, {"ZBASE_TEST_STEPS=6"});
    EXPECT_NE(output.find("\n1 lines\n"), std::string::npos) << output;
    EXPECT_TRUE(output.ends_with("\nlimit 3\n")) << output;
}

TEST_F(DebugHelp, WithAnEntryMissingGivesTheOneLineEachTime) {
    Put("ScriptedDebugHelpWithoutAnEntry");
    EXPECT_EQ(Run({"stack", "enumerate", "stack", "binding", "bound"}),
              std::string(kFailed) + "enumerate 0\n" + kFailed + "binding 111\nentries 11111111110\n");
}

TEST_F(DebugHelp, ThatDoesNotStartIsAskedOnceAndIsThenUsedAsItIs) {
    Put("ScriptedDebugHelp");
    const std::string output = Run({"enumerate", "enumerate", "stack", "counts", Module()},
                                   {"ZBASE_TEST_START=0", "ZBASE_TEST_STEPS=6"});
    EXPECT_TRUE(output.starts_with("enumerate 0\nenumerate 1\n1 lines\n")) << output;
    EXPECT_TRUE(output.ends_with("starts 1 options 0x2035\n")) << output;
}

TEST_F(DebugHelp, IsNotBoundByMostAccessorsAndBoundByThree) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"bound", "binding", "bound", "counts", Module()}),
              std::string(kNoEntry) + "binding 111\n" + kAllEntries + "starts 1 options 0x1\n");
}

TEST_F(DebugHelp, IsOpenedAtFirstUseAndByItsInitializer) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"open", Module(), "bound", "open", Module(), "initialize", "open", Module(), "counts",
                   Module()}),
              std::string("open 0\n") + kNoEntry + "open 0\nopen 1\nstarts 1 options 0x2035\n");
}

TEST_F(DebugHelp, KeepsTheOptionsThatAreSet) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"load", "load", "counts", Module()}), "load 1\nload 1\nstarts 1 options 0x2035\n");
}

TEST_F(DebugHelp, WalkThatEndsInItsFirstFiveStepsGivesNoLines) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"stack"}, {"ZBASE_TEST_STEPS=0"}), "0 lines\n");
    EXPECT_EQ(Run({"stack"}, {"ZBASE_TEST_STEPS=5"}), "0 lines\n");
    EXPECT_EQ(Run({"stack"}, {"ZBASE_TEST_STEPS=8", "ZBASE_TEST_NO_FRAME=3"}), "0 lines\n");
}

TEST_F(DebugHelp, WalkOfSixStepsGivesOneLine) {
    Put("ScriptedDebugHelp");
    const std::string output = Run({"stack"}, {"ZBASE_TEST_STEPS=6"});
    EXPECT_TRUE(output.starts_with("1 lines\n0x")) << output;
    EXPECT_NE(output.find(" 0x0000000000001006 Mod:[" + Module() + "]\tSym:[(NA)]+0x0\tFile:[(NA)](0)\n"),
              std::string::npos)
        << output;
}

TEST_F(DebugHelp, FrameWithoutFrameAddressEndsTheWalk) {
    Put("ScriptedDebugHelp");
    EXPECT_TRUE(Run({"stack"}, {"ZBASE_TEST_STEPS=20", "ZBASE_TEST_NO_FRAME=8"}).starts_with("2 lines\n"));
}

TEST_F(DebugHelp, SymbolWithoutALineHasItsOwnDisplacement) {
    Put("ScriptedDebugHelp");
    const std::string output = Run({"stack"}, {"ZBASE_TEST_STEPS=6", "ZBASE_TEST_NAME=f"});
    EXPECT_NE(output.find("]\tSym:[f]+0x6\tFile:[(NA)](0)\n"), std::string::npos) << output;
}

TEST_F(DebugHelp, LineIsThatOfTheSymbolsStartWithItsDisplacement) {
    Put("ScriptedDebugHelp");
    const std::string output =
        Run({"stack"}, {"ZBASE_TEST_STEPS=6", "ZBASE_TEST_NAME=f", "ZBASE_TEST_LINE=77"});
    EXPECT_NE(output.find("]\tSym:[f]+0xabc\tFile:[scripted.cpp](77)\n"), std::string::npos) << output;
}

TEST_F(DebugHelp, LineNumberPrintsSigned) {
    Put("ScriptedDebugHelp");
    const std::string output =
        Run({"stack"}, {"ZBASE_TEST_STEPS=6", "ZBASE_TEST_NAME=f", "ZBASE_TEST_LINE=4294967295"});
    EXPECT_NE(output.find("(-1)\n"), std::string::npos) << output;
}

TEST_F(DebugHelp, NameOf1024CharactersIsCut) {
    Put("ScriptedDebugHelp");
    for (const std::size_t length : {1022U, 1023U, 1024U, 5000U}) {
        const std::string output =
            Run({"stack"}, {"ZBASE_TEST_STEPS=6", "ZBASE_TEST_NAME=" + std::string(length, 'n')});
        const std::string cut(std::min<std::size_t>(length, 1023), 'n');
        EXPECT_NE(output.find("Sym:[" + cut + "]"), std::string::npos) << length;
    }
}

TEST_F(DebugHelp, OctetOf0x80OfANameGetsTheHighOctet0xFF) {
    Put("ScriptedDebugHelp");
    // 0xC3 becomes the unit 0xFFC3, 0xA9 0xFFA9; here as UTF-8
    const std::string output = Run({"stack"}, {"ZBASE_TEST_STEPS=6", "ZBASE_TEST_NAME=caf\xC3\xA9"});
    EXPECT_NE(output.find("Sym:[caf\xEF\xBF\x83\xEF\xBE\xA9]"), std::string::npos) << output;
}

TEST_F(DebugHelp, TopOfTheStackComesOutermostFirst) {
    Put("ScriptedDebugHelp");
    // five steps, two dropped: steps 3, 4 and 5, the last first
    EXPECT_EQ(Run({"load", "walks"}), "load 1\ntop 0\ntop -1\ntop -2\nwalk 1\n");
}

TEST_F(DebugHelp, TopOfAStackThatEndsBeforeTheCountIsNothing) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"load", "walks"}, {"ZBASE_TEST_STEPS=4"}), "load 1\nwalk 1\n");
}

TEST_F(DebugHelp, TopOfAStackThatANullAddressEndsIsWhatCameBefore) {
    Put("ScriptedDebugHelp");
    EXPECT_EQ(Run({"load", "walks"}, {"ZBASE_TEST_STEPS=9", "ZBASE_TEST_NULL=5"}),
              "load 1\ntop 0\ntop -1\nwalk 1\n");
}

}  // namespace
