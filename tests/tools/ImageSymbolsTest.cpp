#include "tools/zbase/crash/ImageSymbols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/tools/MadePdb.h"

namespace {

/// A small image: a section at 0x1000, whose content stands at 0x200 in the file, and one symbol.
class ImageSymbols : public testing::Test {
protected:
    ImageSymbols() : mImage(0x400 + 18 + 4, '\0') {
        Put("MZ", 0);
        Number(0x3C, 0x40u);
        Put("PE", 0x40);
        Number(0x46, std::uint16_t{1});      // sections
        Number(0x48, 0x11223344u);           // stamp
        Number(0x4C, 0x400u);                // symbols
        Number(0x50, 1u);                    // one of them
        Number(0x54, std::uint16_t{240});    // octets of the second header
        Number(0x58, std::uint16_t{0x20B});  // for 64 bits
        Number(0x58 + 56, 0x5000u);          // size in memory
        Number(0x58 + 108, 16u);             // tables
        Number(0x58 + 112 + 24, 0x1100u);    // that of functions
        Number(0x58 + 116 + 24, 12u);        // with one
        Number(kSection + 12, 0x1000u);      // where it is loaded
        Number(kSection + 16, 0x200u);       // octets in the file
        Number(kSection + 20, 0x200u);       // where they stand
        Function(0x300, 0x1010, 0x1030, 0x1150);
        Codes(0x350, 0, {0x4205, 0x3001});
        Put("_Z3Runv", 0x400);
        Number(0x408, 0x10u);  // in its section
        Number(0x40C, std::uint16_t{1});
        Number(0x40E, std::uint16_t{0x20});  // a function
    }

    void Put(const char* text, std::size_t at) { std::memcpy(&mImage[at], text, std::strlen(text)); }

    template <class T>
    void Number(std::size_t at, T number) {
        std::memcpy(&mImage[at], &number, sizeof number);
    }

    void Function(std::size_t at, std::uint32_t start, std::uint32_t end, std::uint32_t codes) {
        Number(at, start);
        Number(at + 4, end);
        Number(at + 8, codes);
    }

    void Codes(std::size_t at, std::uint8_t flags, const std::vector<std::uint16_t>& slots) {
        Number(at, static_cast<std::uint8_t>(1 | flags << 3));
        Number(at + 2, static_cast<std::uint8_t>(slots.size()));
        for (std::size_t i = 0; i != slots.size(); ++i) Number(at + 4 + i * 2, slots[i]);
    }

    /// Says that the image has this PDB file.
    void TellPdb(const test::MadePdb& pdb, const char* name) {
        Number(0x58 + 112 + 48, 0x1180u);  // what is for debuggers
        Number(0x58 + 116 + 48, 28u);
        Number(0x380 + 12, 2u);      // symbols
        Number(0x380 + 24, 0x3A0u);  // where they are told in the file
        Put("RSDS", 0x3A0);
        Put(pdb.guid.c_str(), 0x3A4);
        Number(0x3B4, pdb.age);
        Put(name, 0x3B8);
    }

    std::string Symbols() const { return SymbolsOfImage(mImage, "", "a.exe", "ID"); }

    static constexpr std::size_t kSection = 0x58 + 240;

    std::string mImage;
};

TEST_F(ImageSymbols, TellFunctionsAndHowTheyAreUnwound) {
    EXPECT_EQ(Symbols(),
              "MODULE windows x86_64 ID a.exe\n"
              "FUNC 1010 20 0 Run()\n"
              "STACK CFI INIT 1010 20 .cfa: $rsp 8 + .ra: .cfa 8 - ^\n"
              "STACK CFI 1011 .cfa: $rsp 16 + $rbx: .cfa 16 - ^\n"
              "STACK CFI 1015 .cfa: $rsp 56 +\n");
}

TEST_F(ImageSymbols, PartOfAFunctionIsUnwoundAsWhatItContinues) {
    Number(0x58 + 116 + 24, 24u);
    Function(0x30C, 0x1080, 0x1090, 0x1170);
    Codes(0x370, 4, {});
    Function(0x374, 0x1010, 0x1030, 0x1150);
    EXPECT_TRUE(Symbols().ends_with(
        "STACK CFI INIT 1080 10 .cfa: $rsp 8 + .ra: .cfa 8 - ^ .cfa: $rsp 16 + $rbx: .cfa 16 - ^ .cfa: $rsp "
        "56 +\n"))
        << Symbols();
}

TEST_F(ImageSymbols, PartThatContinuesItselfEnds) {
    Codes(0x350, 4, {});
    Function(0x354, 0x1010, 0x1030, 0x1150);
    EXPECT_NE(Symbols(), "");
}

TEST_F(ImageSymbols, OfItsPdbFileHaveLinesAndComeBeforeThoseOfTheLinker) {
    test::MadePdb pdb;
    pdb.Function(0x1147, 1, 0x10, 0x20, "Server::Run");
    pdb.Function(0x1147, 9, 0x10, 0x20, "InNoSection");
    pdb.Lines(1, 0x10, 0x20, {{pdb.File("run.cpp"), {{0, 7}, {8, 9}}}});
    pdb.Public(2, 1, 0x40, "_Z4Walkv");
    TellPdb(pdb, "C:\\build\\a.pdb");
    Number(0x58 + 116 + 24, 24u);  // a function more
    Function(0x30C, 0x1040, 0x1050, 0x1150);
    const std::string found = SymbolsOfImage(mImage, pdb.Content(), "a.pdb", "ID");
    EXPECT_TRUE(
        found.starts_with("MODULE windows x86_64 ID a.pdb\n"
                          "FILE 0 run.cpp\n"
                          "FUNC 1010 20 0 Server::Run\n"
                          "1010 8 7 0\n"
                          "1018 18 9 0\n"
                          "FUNC 1040 10 0 Walk()\n"
                          "STACK CFI INIT 1010 20 "))
        << found;
    EXPECT_EQ(PdbOfImage(mImage), "a.pdb");

    ++pdb.age;
    const std::string without = SymbolsOfImage(mImage, pdb.Content(), "a.pdb", "ID");
    EXPECT_TRUE(
        without.starts_with("MODULE windows x86_64 ID a.pdb\n"
                            "FUNC 1010 20 0 Run()\n"
                            "STACK CFI INIT 1010 20 "))
        << without;
}

TEST_F(ImageSymbols, ImageWithoutAPdbFileNamesNone) {
    EXPECT_EQ(PdbOfImage(mImage), "");
    EXPECT_EQ(PdbOfImage(""), "");
}

TEST_F(ImageSymbols, IdentityIsTheStampAndTheSize) {
    EXPECT_EQ(IdentityOfImage(mImage), (ImageIdentity{0x11223344, 0x5000}));
    EXPECT_EQ(IdentityOfImage("\177ELF"), ImageIdentity{});
}

TEST_F(ImageSymbols, WhatIsNoImageHasNone) {
    EXPECT_EQ(SymbolsOfImage("", "", "a", "b"), "");
    EXPECT_EQ(SymbolsOfImage("MZ", "", "a", "b"), "");
    EXPECT_EQ(SymbolsOfImage(mImage.substr(0, 0x50), "", "a", "b"), "");
}

// A small image would have gigabytes of names.
TEST_F(ImageSymbols, ManyNamesOfOneLongTextHaveNoMoreOctetsThanTheFile) {
    constexpr std::uint32_t kFunctions = 27, kLength = 1000;
    Number(0x58 + 112 + 24, 0x1000u);
    Number(0x58 + 116 + 24, kFunctions * 12);
    Number(0x50, kFunctions);
    test::MadeOctets symbols;
    for (std::uint32_t i = 0; i != kFunctions; ++i) {
        Function(0x200 + i * 12, 0x1000 + i, 0x1001 + i, 0x1150);
        symbols.Number(0u).Number(0u).Number(i).Number(std::uint16_t{1}).Number(std::uint16_t{0x20}).Zeros(2);
    }
    mImage.resize(0x400);
    mImage += *symbols + std::string(kLength, 'n');
    const std::string symbolsOfAll = Symbols();
    const auto named = std::count(symbolsOfAll.begin(), symbolsOfAll.end(), 'n');
    EXPECT_GE(named, kLength);
    EXPECT_LE(static_cast<std::size_t>(named), mImage.size());
}

// Each octet of the tables with every bit turned, and each end: there is an answer.
TEST_F(ImageSymbols, DamagedImageIsReadWithinItsBounds) {
    const std::string whole = mImage;
    for (std::size_t end = 0; end != whole.size(); ++end) SymbolsOfImage(whole.substr(0, end), "", "a", "b");
    for (std::size_t at = 0x3C; at < whole.size(); ++at) {
        for (const int bits : {0xFF, 0x80, 0x7F}) {
            mImage = whole;
            mImage[at] = static_cast<char>(mImage[at] ^ bits);
            Symbols();
        }
    }
}

}  // namespace
