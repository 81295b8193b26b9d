#include "tools/zbase/crash/PdbSymbols.h"

#include <gtest/gtest.h>

#include "tests/tools/MadePdb.h"

namespace {

constexpr std::uint16_t kGlobal = 0x1147;
constexpr std::uint16_t kLocal = 0x1146;

class PdbSymbolsOfAFile : public testing::Test {
protected:
    PdbSymbols Read() const { return ReadPdb(mPdb.Content(), Identity()); }

    PdbIdentity Identity() const {
        PdbIdentity identity{{}, mPdb.age};
        mPdb.guid.copy(identity.guid.data(), identity.guid.size());
        return identity;
    }

    test::MadePdb mPdb;
};

TEST_F(PdbSymbolsOfAFile, AreItsFunctionsInEachModule) {
    mPdb.Function(kGlobal, 1, 0x10, 0x20, "Run");
    mPdb.Function(kLocal, 2, 0x30, 0x40, "(anonymous namespace)::Help");
    mPdb.Function(0x110F, 1, 0x50, 1, "OfAnotherCompiler");
    mPdb.Function(0x1110, 1, 0x60, 2, "");
    mPdb.Function(0x1102, 1, 0x70, 2, "no function");
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions.size(), 4U);
    EXPECT_EQ(symbols.functions[0].name, "Run");
    EXPECT_EQ(symbols.functions[0].section, 1);
    EXPECT_EQ(symbols.functions[0].offset, 0x10U);
    EXPECT_EQ(symbols.functions[0].size, 0x20U);
    EXPECT_EQ(symbols.functions[1].name, "(anonymous namespace)::Help");
    EXPECT_EQ(symbols.functions[1].section, 2);
    EXPECT_EQ(symbols.functions[2].name, "OfAnotherCompiler");
    EXPECT_EQ(symbols.functions[3].name, "");
}

TEST_F(PdbSymbolsOfAFile, HaveLinesOfSeveralFilesByTheirOffsets) {
    const std::uint32_t source = mPdb.File("run.cpp");
    const std::uint32_t header = mPdb.File("help.h");
    mPdb.Function(kGlobal, 1, 0x100, 0x20, "Run");
    mPdb.Lines(1, 0x100, 0x20, {{source, {{0, 7}, {0x10, 9}}}, {header, {{8, 30}}}});
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions.size(), 1U);
    const std::vector<PdbLine>& lines = symbols.functions[0].lines;
    ASSERT_EQ(lines.size(), 3U);
    const std::uint32_t expected[][3] = {{0x100, 8, 7}, {0x108, 8, 30}, {0x110, 0x10, 9}};
    for (std::size_t i = 0; i != 3; ++i) {
        EXPECT_EQ(lines[i].offset, expected[i][0]);
        EXPECT_EQ(lines[i].size, expected[i][1]);
        EXPECT_EQ(lines[i].number, expected[i][2]);
        EXPECT_EQ(symbols.files.at(lines[i].file), i == 1 ? "help.h" : "run.cpp");
    }
}

// A table could make many long names of one.
TEST_F(PdbSymbolsOfAFile, NameOfAFileBeginsWhereATextDoes) {
    const std::uint32_t source = mPdb.File("run.cpp");
    const auto middle = static_cast<std::uint32_t>((*mPdb.fileTable).size());
    mPdb.fileTable.Number(3u).Zeros(2).Align();
    mPdb.Function(kGlobal, 1, 0, 0x20, "Run");
    mPdb.Lines(1, 0, 0x20, {{source, {{0, 7}}}, {middle, {{8, 9}}}});
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions[0].lines.size(), 2U);
    EXPECT_EQ(symbols.files.at(symbols.functions[0].lines[0].file), "run.cpp");
    EXPECT_EQ(symbols.files.at(symbols.functions[0].lines[1].file), "");
}

// Else each of many parts could have all that is behind it read.
TEST_F(PdbSymbolsOfAFile, LinesAreInThePartThatCountsThem) {
    const std::uint32_t source = mPdb.File("run.cpp");
    mPdb.Function(kGlobal, 1, 0, 0x40, "Run");
    test::MadeOctets part;
    part.Number(0u).Number(std::uint16_t{1}).Number(std::uint16_t{0}).Number(0x40u);
    part.Number(source).Number(100u).Number(12u + 8u).Number(0u).Number(7u);
    part.Number(source).Number(1u).Number(12u + 8u).Number(0x20u).Number(9u);
    mPdb.Part(0xF2, *part);
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions[0].lines.size(), 2U);
    EXPECT_EQ(symbols.functions[0].lines[0].number, 7U);
    EXPECT_EQ(symbols.functions[0].lines[1].number, 9U);
}

TEST_F(PdbSymbolsOfAFile, HiddenLineIsOfTheLineBefore) {
    const std::uint32_t source = mPdb.File("run.cpp");
    mPdb.Function(kGlobal, 1, 0, 0x20, "Run");
    mPdb.Lines(1, 0, 0x20, {{source, {{0, 7}, {4, 0xFEEFEE}, {8, 0xF00F00}, {0x10, 8}}}});
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions[0].lines.size(), 2U);
    EXPECT_EQ(symbols.functions[0].lines[0].size, 0x10U);
}

// As where the linker folded two that are alike.
TEST_F(PdbSymbolsOfAFile, LineIsOfOneFunction) {
    mPdb.Function(kGlobal, 1, 0, 0x20, "Run");
    mPdb.Function(kGlobal, 1, 0, 0x20, "Walk");
    mPdb.Function(kGlobal, 1, 0x20, 0x20, "Stand");
    mPdb.Lines(1, 0, 0x40, {{mPdb.File("run.cpp"), {{0, 7}, {0x20, 9}}}});
    const PdbSymbols symbols = Read();
    EXPECT_EQ(symbols.functions[0].lines.size(), 1U);
    EXPECT_EQ(symbols.functions[1].lines.size(), 0U);
    ASSERT_EQ(symbols.functions[2].lines.size(), 1U);
    EXPECT_EQ(symbols.functions[2].lines[0].number, 9U);
}

TEST_F(PdbSymbolsOfAFile, NamesThatTheLinkerHasAreThoseOfFunctions) {
    mPdb.Public(2, 1, 0x80, "_Z3Runv");
    mPdb.Public(0, 3, 0x90, "gData");
    mPdb.Public(1, 1, 0x90, "label");
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.names.size(), 1U);
    EXPECT_EQ(symbols.names[0].name, "_Z3Runv");
    EXPECT_EQ(symbols.names[0].section, 1);
    EXPECT_EQ(symbols.names[0].offset, 0x80U);
}

TEST_F(PdbSymbolsOfAFile, AreWholeWhereStreamsHaveManyBlocks) {
    for (std::uint32_t i = 0; i != 100; ++i) {
        const std::uint32_t file = mPdb.File("file" + std::to_string(i));
        mPdb.Function(kGlobal, 1, i * 16, 16, "Function" + std::to_string(i));
        mPdb.Lines(1, i * 16, 16, {{file, {{0, i + 1}}}});
    }
    const PdbSymbols symbols = Read();
    ASSERT_EQ(symbols.functions.size(), 100U);
    for (std::uint32_t i = 0; i != 100; ++i) {
        EXPECT_EQ(symbols.functions[i].name, "Function" + std::to_string(i));
        ASSERT_EQ(symbols.functions[i].lines.size(), 1U);
        EXPECT_EQ(symbols.functions[i].lines[0].number, i + 1);
        EXPECT_EQ(symbols.files.at(symbols.functions[i].lines[0].file), "file" + std::to_string(i));
    }
}

TEST_F(PdbSymbolsOfAFile, OfAModuleThatIsListedAgainAreReadOnce) {
    mPdb.times = 3;
    mPdb.Function(kGlobal, 1, 0x10, 0x20, "Run");
    EXPECT_EQ(Read().functions.size(), 1U);
}

TEST_F(PdbSymbolsOfAFile, OfAnotherImageAreNone) {
    mPdb.Function(kGlobal, 1, 0x10, 0x20, "Run");
    PdbIdentity other = Identity();
    ++other.age;
    EXPECT_TRUE(ReadPdb(mPdb.Content(), other).functions.empty());
    other = Identity();
    other.guid[15] ^= 1;
    EXPECT_TRUE(ReadPdb(mPdb.Content(), other).functions.empty());
    EXPECT_EQ(ReadPdb(mPdb.Content(), Identity()).functions.size(), 1U);
}

TEST_F(PdbSymbolsOfAFile, ThatIsNoneAreNone) {
    EXPECT_TRUE(ReadPdb("", {}).functions.empty());
    EXPECT_TRUE(ReadPdb(mPdb.Content().substr(0, 32), {}).functions.empty());
    EXPECT_TRUE(ReadPdb(std::string(4096, '\0'), {}).functions.empty());
}

// A directory that names one block for each of a stream's would make much of little.
TEST_F(PdbSymbolsOfAFile, WhoseStreamsAreLargerThanTheFileAreNone) {
    mPdb.Function(kGlobal, 1, 0x10, 0x20, "Run");
    std::string content = mPdb.Content();
    const std::size_t directory = content.size() - 512;
    const std::uint32_t size = 0x7FFFFFFF;
    std::memcpy(&content[directory + 4 + 4], &size, sizeof size);  // of the stream with the identity
    EXPECT_TRUE(ReadPdb(content, Identity()).functions.empty());
}

TEST_F(PdbSymbolsOfAFile, ThatIsDamagedAreReadWithinItsBounds) {
    const std::uint32_t source = mPdb.File("run.cpp");
    mPdb.Function(kGlobal, 1, 0x10, 0x20, "Run");
    mPdb.Lines(1, 0x10, 0x20, {{source, {{0, 7}, {8, 9}}}});
    mPdb.Public(2, 1, 0x80, "_Z3Runv");
    const std::string whole = mPdb.Content();
    ASSERT_EQ(Read().functions.size(), 1U);
    for (std::size_t end = 0; end < whole.size(); end += 7) ReadPdb(whole.substr(0, end), Identity());
    for (std::size_t at = 0; at != whole.size(); ++at) {
        for (const int bits : {0xFF, 0x80, 0x7F}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ bits);
            ReadPdb(damaged, Identity());
        }
    }
}

}  // namespace
