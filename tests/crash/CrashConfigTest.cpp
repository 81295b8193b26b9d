#include <Base/ZBase.h>

#include <clocale>
#include <cstdlib>

#include "tests/crash/CrashBench.h"
#include "tests/support/Locales.h"
#include "tests/support/System.h"

// The configuration: how its lines are read, and where the file is found.

namespace {

using namespace ZBase::Literals;
using ZBase::CrashConfigTable;
using ZBase::ECrashConfigLine;
using ZBase::WideString;

struct Tables {
    CrashConfigTable settings;
    CrashConfigTable crashKeys;
};

class CrashConfigFile : public test::CrashBench {
protected:
    Tables Read(const std::string& content) {
        WriteConfig(content);
        Tables tables;
        EXPECT_TRUE(ZBase::ReadCrashConfig(Config().c_str(), tables.settings, tables.crashKeys));
        return tables;
    }
};

const CrashConfigTable kNone;

TEST_F(CrashConfigFile, FillsTheTableOfItsSection) {
    const Tables tables = Read("[Config]\na=1\n[CrashKeys]\nb=2\nc=3\n[Config]\nd=4\n");
    EXPECT_EQ(tables.settings, (CrashConfigTable{{"a"_w, "1"_w}, {"d"_w, "4"_w}}));
    EXPECT_EQ(tables.crashKeys, (CrashConfigTable{{"b"_w, "2"_w}, {"c"_w, "3"_w}}));
}

TEST_F(CrashConfigFile, LastLineNeedsNoLineFeed) {
    EXPECT_EQ(Read("[Config]\na=1").settings, (CrashConfigTable{{"a"_w, "1"_w}}));
}

TEST_F(CrashConfigFile, SplitsAtTheFirstEqualsSignOnly) {
    EXPECT_EQ(Read("[Config]\na=b=c=\n").settings, (CrashConfigTable{{"a"_w, "b=c="_w}}));
}

TEST_F(CrashConfigFile, TrimsNothing) {
    EXPECT_EQ(Read("[Config]\n a = 1 \n").settings, (CrashConfigTable{{" a "_w, " 1 "_w}}));
}

TEST_F(CrashConfigFile, ValueAndKeyMayBeEmpty) {
    EXPECT_EQ(Read("[Config]\na=\n=b\n").settings, (CrashConfigTable{{"a"_w, ""_w}, {""_w, "b"_w}}));
}

TEST_F(CrashConfigFile, RepeatedKeyKeepsItsLastValue) {
    EXPECT_EQ(Read("[Config]\na=1\na=2\n").settings, (CrashConfigTable{{"a"_w, "2"_w}}));
}

TEST_F(CrashConfigFile, KeysDifferInCase) {
    EXPECT_EQ(Read("[Config]\na=1\nA=2\n").settings.size(), 2u);
}

TEST_F(CrashConfigFile, OnlyTheFirstCharacterMakesAComment) {
    EXPECT_EQ(Read("[Config]\n#a=1\n #b=2\n;c=3\nd=#4\n").settings,
              (CrashConfigTable{{" #b"_w, "2"_w}, {";c"_w, "3"_w}, {"d"_w, "#4"_w}}));
}

TEST_F(CrashConfigFile, HeaderCountsOnlyAsTheWholeLineInItsCase) {
    EXPECT_EQ(Read("[Config] \na=1\n[config]\na=1\n [Config]\na=1\n").settings, kNone);
}

TEST_F(CrashConfigFile, LinesOfAnUnknownSectionLandInTheOneBefore) {
    EXPECT_EQ(Read("[Config]\n[Other]\na=1\n").settings, (CrashConfigTable{{"a"_w, "1"_w}}));
}

TEST_F(CrashConfigFile, BracketedLineWithEqualsSignIsAKey) {
    EXPECT_EQ(Read("[Config]\n[a]=1\n").settings, (CrashConfigTable{{"[a]"_w, "1"_w}}));
}

TEST_F(CrashConfigFile, LinesBeforeTheFirstHeaderCountForNothing) {
    EXPECT_EQ(Read("a=1\n\n[Config]\n").settings, kNone);
}

TEST_F(CrashConfigFile, MayEndItsLinesWithCarriageReturns) {
    const Tables tables = Read("[Config]\r\na=1\r\n\r\n[CrashKeys]\r\nb=\r\r\nc=2\r");
    EXPECT_EQ(tables.settings, (CrashConfigTable{{"a"_w, "1"_w}}));
    EXPECT_EQ(tables.crashKeys, (CrashConfigTable{{"b"_w, "\r"_w}, {"c"_w, "2\r"_w}}));
}

TEST_F(CrashConfigFile, IsTextOfTheLocale) {
    std::setlocale(LC_ALL, "C.UTF-8");
    EXPECT_EQ(Read("[CrashKeys]\nk\u00E9y=\u20AC\U0001F600\n").crashKeys,
              (CrashConfigTable{{"k\u00E9y"_w, "\u20AC\U0001F600"_w}}));
}

TEST_F(CrashConfigFile, IsTextOfALocaleWhoseLettersWaitForTheirTones) {
    const test::ScopedLocale locale("TCVN5712-1", 2);
    EXPECT_EQ(Read("[CrashKeys]\nka=\xB5z\n").crashKeys, (CrashConfigTable{{"ka"_w, "\u00E0z"_w}}));
}

TEST_F(CrashConfigFile, LineThatIsNoTextIsSkippedAndTheRestIsRead) {
    std::setlocale(LC_ALL, "C.UTF-8");
    EXPECT_EQ(Read("[Config]\na=\xFF\nb=2\n").settings, (CrashConfigTable{{"b"_w, "2"_w}}));
}

TEST_F(CrashConfigFile, MayBeBinary) {
    std::string content;
    for (int i = 0; i != 100000; ++i) content.push_back(static_cast<char>(i * 7919 >> 3));
    const Tables tables = Read(content + "\n[Config]\na=1\n");
    EXPECT_TRUE(tables.settings.contains("a"_w));
}

TEST_F(CrashConfigFile, HoldsZeros) {
    EXPECT_EQ(Read(std::string("[Config]\na\0=b\0c\n", 16)).settings,
              (CrashConfigTable{{WideString("a\0"_w, 2), WideString("b\0c"_w, 3)}}));
}

TEST_F(CrashConfigFile, MayHaveTenMebibytes) {
    std::string content = "[CrashKeys]\n";
    while (content.size() < 10 << 20) content += "key=" + std::string(1000, 'x') + "\n";
    const Tables tables = Read(content + "last=1");
    EXPECT_EQ(tables.crashKeys.size(), 2u);
    EXPECT_EQ(tables.crashKeys.at("key"_w).size(), 1000u);
}

TEST_F(CrashConfigFile, MayBeOneLineOfTenMebibytes) {
    EXPECT_EQ(Read("[Config]\na=" + std::string(10 << 20, 'x')).settings.at("a"_w).size(),
              std::size_t{10} << 20);
}

TEST_F(CrashConfigFile, ThatCantBeOpenedIsTold) {
    Tables tables;
    EXPECT_FALSE(
        ZBase::ReadCrashConfig((mFolder / "missing").string().c_str(), tables.settings, tables.crashKeys));
    EXPECT_FALSE(ZBase::ReadCrashConfig(nullptr, tables.settings, tables.crashKeys));
}

TEST_F(CrashConfigFile, ReadingAddsToWhatIsThere) {
    WriteConfig("[Config]\na=1\n");
    Tables tables{{{"a"_w, "0"_w}, {"b"_w, "0"_w}}, {}};
    ZBase::ReadCrashConfig(Config().c_str(), tables.settings, tables.crashKeys);
    EXPECT_EQ(tables.settings, (CrashConfigTable{{"a"_w, "1"_w}, {"b"_w, "0"_w}}));
}

TEST(CrashConfigReader, TellsWhatEachLineCountsFor) {
    ZBase::CrashConfigReader reader;
    WideString key;
    WideString value;
    const std::pair<const char*, ECrashConfigLine> lines[] = {
        {"", ECrashConfigLine::eEmpty},
        {"# [Config]", ECrashConfigLine::eComment},
        {"a=1", ECrashConfigLine::eNoSection},
        {"[Other]", ECrashConfigLine::eUnknown},
        {"[Config]", ECrashConfigLine::eConfigHeader},
        {"a=1", ECrashConfigLine::eSetting},
        {"a", ECrashConfigLine::eUnknown},
        {"[CrashKeys]", ECrashConfigLine::eCrashKeysHeader},
        {"a=1", ECrashConfigLine::eCrashKey},
    };
    for (const auto& [line, meaning] : lines) EXPECT_EQ(reader.Read(line, key, value), meaning) << line;
    EXPECT_TRUE(key == "a"_w && value == "1"_w);
}

TEST(CrashConfigSettings, AreTrueInTwoSpellingsOnly) {
    for (const auto* yes : {"true"_w, "TRUE"_w}) EXPECT_TRUE(ZBase::IsCrashSettingTrue(yes));
    for (const auto* no : {"True"_w, "tRUE"_w, "1"_w, "yes"_w, ""_w, "true "_w, " true"_w}) {
        EXPECT_FALSE(ZBase::IsCrashSettingTrue(no));
    }
}

TEST(CrashConfigSettings, NeedBothServersAndMayNotBeDisabled) {
    using enum ZBase::ECrashSettings;
    const CrashConfigTable both = {{"ServerURL"_w, ""_w}, {"ServerProdURL"_w, ""_w}};
    EXPECT_EQ(ZBase::JudgeCrashSettings(both), eComplete);
    EXPECT_EQ(ZBase::JudgeCrashSettings({}), eNoServerURL);
    EXPECT_EQ(ZBase::JudgeCrashSettings({{"ServerURL"_w, "x"_w}}), eNoServerProdURL);
    EXPECT_EQ(ZBase::JudgeCrashSettings({{"ServerProdURL"_w, "x"_w}}), eNoServerURL);
    EXPECT_EQ(ZBase::JudgeCrashSettings({{"enable"_w, "True"_w}}), eDisabled);
    CrashConfigTable enabled = both;
    enabled["enable"_w] = "TRUE"_w;
    EXPECT_EQ(ZBase::JudgeCrashSettings(enabled), eComplete);
}

class CrashConfigSearch : public test::CrashBench {
protected:
    void SetUp() override {
        test::SetVariable("ZENT_CRASH_CONFIG_FILE", nullptr);
        test::SetVariable("ZENT_HOME_PATH", nullptr);
    }
    void TearDown() override { SetUp(); }
    std::string Find() { return ZBase::FindCrashConfig().c_str(); }
};

TEST_F(CrashConfigSearch, TakesTheNamedFileUntested) {
    test::SetVariable("ZENT_CRASH_CONFIG_FILE", "/no/such/file");
    test::SetVariable("ZENT_HOME_PATH", mFolder.string().c_str());
    WriteConfig("");
    EXPECT_EQ(Find(), "/no/such/file");
}

TEST_F(CrashConfigSearch, TakesTheFileInTheHome) {
    test::SetVariable("ZENT_HOME_PATH", mFolder.string().c_str());
    WriteConfig("");
    EXPECT_EQ(Find(), Config());
}

TEST_F(CrashConfigSearch, FallsBackToTheCurrentDirectory) {
    EXPECT_EQ(Find(), "crash_report.ini");
    test::SetVariable("ZENT_HOME_PATH", mFolder.string().c_str());
    EXPECT_EQ(Find(), "crash_report.ini");
    test::SetVariable("ZENT_CRASH_CONFIG_FILE", "");
    EXPECT_EQ(Find(), "crash_report.ini");
}

}  // namespace
