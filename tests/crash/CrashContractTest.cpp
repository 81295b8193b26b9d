#include <Base/ZBase.h>
#include <Base/crash/detail/CrashContract.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include <TestPlaces.h>

// The table of settings and the names of a report's fields: that they agree with themselves, and that
// docs/subsystems/crashes.md tells the same.

namespace {

using namespace ZBase::Literals;
using ZBase::CrashConfigTable;
using ZBase::WideString;
using ZBase::detail::CrashSetting;
using ZBase::detail::ECrashSetting;
using ZBase::detail::kCrashSettings;
using ZBase::detail::kReportFields;

std::string Narrow(const unsigned short* text) {
    return ZBase::WideCharToUTF8(text, true).c_str();
}

std::string Quoted(std::string_view text) {
    return "`" + std::string(text) + "`";
}

std::string YesOrNo(std::string_view value) {
    return value == "true" ? "yes" : "no";
}

std::string ValueColumn(const CrashSetting& row) {
    switch (row.kind) {
        case ECrashSetting::eChoice:
            return row.yes == nullptr ? "yes or no" : Quoted(row.yes);
        case ECrashSetting::eNumber:
            return std::to_string(row.least) + " to " + std::to_string(row.most);
        case ECrashSetting::eText:
            return "text";
        case ECrashSetting::eFiles:
            return "a path";
    }
    return "";
}

std::string UsualColumn(const CrashSetting& row) {
    if (row.kind == ECrashSetting::eNumber) return std::to_string(row.usualNumber);
    if (row.usual == nullptr) return "must be there";
    if (*row.usual == 0) return "none";
    return row.kind == ECrashSetting::eChoice ? YesOrNo(row.usual) : Quoted(row.usual);
}

std::string MeaningColumn(const CrashSetting& row) {
    std::string meaning = row.meaning;
    if (row.kind == ECrashSetting::eChoice) {
        const std::string yes = row.yes == nullptr ? "yes" : Quoted(row.yes);
        const std::string no = row.yes == nullptr ? "no" : "else";
        meaning = yes + ": " + row.meaning + "; " + no + ": " + row.otherwise;
    }
    return *row.more == 0 ? meaning : meaning + " (" + row.more + ")";
}

std::string TableOfSettings() {
    std::string table = "| Key of `[Config]` | Value | Usual | Meaning |\n|---|---|---|---|\n";
    for (const CrashSetting& row : kCrashSettings) {
        const std::string key = Narrow(row.key) + (row.kind == ECrashSetting::eFiles ? "NAME" : "");
        table += "| " + Quoted(key) + " | " + ValueColumn(row) + " | " + UsualColumn(row) + " | " +
                 MeaningColumn(row) + " |\n";
    }
    return table;
}

std::string TableOfFields() {
    std::string table = "| Key of a report | When |\n|---|---|\n";
    for (const auto& field : kReportFields) table += "| " + Quoted(field.name) + " | " + field.when + " |\n";
    return table;
}

std::string Document() {
    std::ifstream file(ZBASE_SOURCE_DIR "/docs/subsystems/crashes.md");
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(CrashContract, DocumentHasTheTableOfSettings) {
    EXPECT_NE(Document().find("\n\n" + TableOfSettings() + "\n"), std::string::npos) << TableOfSettings();
}

TEST(CrashContract, DocumentHasTheFieldsThatTheLibraryAdds) {
    EXPECT_NE(Document().find("\n\n" + TableOfFields() + "\n"), std::string::npos) << TableOfFields();
}

TEST(CrashContract, DocumentNamesWhatLiesBesideTheDumps) {
    using namespace ZBase::detail;
    for (const std::string_view ending : {std::string_view(kDumpEnding), std::string_view(kSendingEnding),
                                          std::string_view(kAttachmentsEnding)}) {
        EXPECT_NE(Document().find("| `GUID" + std::string(ending) + "` |"), std::string::npos) << ending;
    }
    EXPECT_NE(Document().find("| " + Quoted(kReportsOfTheDay) + ", " + Quoted(kPauseOfTheSender) + " |"),
              std::string::npos);
}

TEST(CrashContract, EachKeyHasOneRowThatIsFound) {
    std::set<std::string> keys;
    for (const CrashSetting& row : kCrashSettings) {
        EXPECT_TRUE(keys.insert(Narrow(row.key)).second) << Narrow(row.key);
        EXPECT_EQ(ZBase::detail::FindCrashSetting(row.key), &row) << Narrow(row.key);
    }
    for (const auto* other : {"Enable"_w, "enable "_w, "attachment"_w, ""_w})
        EXPECT_EQ(ZBase::detail::FindCrashSetting(other), nullptr) << Narrow(other);
}

TEST(CrashContract, KeyOfAFileMayGoOnAsItLikesUnlessItIsAnotherSettings) {
    for (const auto* file : {"attachment_"_w, "attachment_a"_w, "attachment_megabytes "_w})
        EXPECT_TRUE(ZBase::detail::IsAttachment(file)) << Narrow(file);
    for (const auto* other : {"attachment_megabytes"_w, "max_attachments"_w, "Attachment_a"_w})
        EXPECT_FALSE(ZBase::detail::IsAttachment(other)) << Narrow(other);
}

TEST(CrashContract, NumbersAreThoseThatTheReaderKnows) {
    for (const CrashSetting& row : kCrashSettings) {
        const ZBase::CrashNumber* const number = ZBase::FindCrashNumber(row.key);
        ASSERT_EQ(number != nullptr, row.kind == ECrashSetting::eNumber) << Narrow(row.key);
        if (number == nullptr) continue;
        EXPECT_EQ(number->least, row.least);
        EXPECT_EQ(number->most, row.most);
        EXPECT_EQ(number->usual, row.usualNumber);
        EXPECT_TRUE(row.least <= row.usualNumber && row.usualNumber <= row.most) << Narrow(row.key);
        EXPECT_EQ(ZBase::CrashNumberOf({}, row.key), row.usualNumber);
    }
}

// Independent copy: the behaviour of a process whose file is silent.
TEST(CrashContract, AbsentSettingsCountAsTheUsualOnes) {
    using namespace ZBase::detail;
    const CrashConfigTable none;
    EXPECT_TRUE(ChoiceSetting<"enable">(none));
    EXPECT_FALSE(ChoiceSetting<"native_dump">(none));
    EXPECT_FALSE(ChoiceSetting<"keep_dump_file">(none));
    EXPECT_TRUE(ChoiceSetting<"send_left">(none));
    EXPECT_FALSE(ChoiceSetting<"chain">(none));
    EXPECT_EQ(TextSetting<"dump_path">(none), "crash_dumps"_w);
    EXPECT_EQ(TextSetting<"ServerURL">(none), ""_w);
    EXPECT_FALSE(HasTextSetting<"stacks_on">(none));
    EXPECT_EQ(NumberSetting<"dump_seconds">(none), 10u);
    EXPECT_EQ(NumberSetting<"dump_megabytes">(none), 64u);
    EXPECT_EQ(NumberSetting<"max_dumps">(none), 50u);
    EXPECT_EQ(NumberSetting<"max_dump_megabytes">(none), 512u);
    EXPECT_EQ(NumberSetting<"max_age_days">(none), 30u);
    EXPECT_EQ(NumberSetting<"send_pause_seconds">(none), 60u);
    EXPECT_EQ(NumberSetting<"max_reports_per_day">(none), 100u);
    EXPECT_EQ(NumberSetting<"max_attachments">(none), 8u);
    EXPECT_EQ(NumberSetting<"attachment_megabytes">(none), 1u);
}

TEST(CrashContract, SettingsThatAreThereCountAsTheySay) {
    using namespace ZBase::detail;
    const auto with = [](const unsigned short* key, const unsigned short* value) {
        return CrashConfigTable{{key, value}};
    };
    EXPECT_FALSE(ChoiceSetting<"enable">(with("enable"_w, ""_w)));
    EXPECT_FALSE(ChoiceSetting<"send_left">(with("send_left"_w, "True"_w)));
    EXPECT_TRUE(ChoiceSetting<"native_dump">(with("native_dump"_w, "TRUE"_w)));
    EXPECT_TRUE(ChoiceSetting<"chain">(with("chain"_w, "first"_w)));
    EXPECT_FALSE(ChoiceSetting<"chain">(with("chain"_w, "true"_w)));
    EXPECT_EQ(TextSetting<"dump_path">(with("dump_path"_w, ""_w)), ""_w);
    EXPECT_EQ(NumberSetting<"dump_seconds">(with("dump_seconds"_w, "60"_w)), 60u);
    EXPECT_EQ(NumberSetting<"dump_seconds">(with("dump_seconds"_w, "61"_w)), 10u);
}

TEST(CrashContract, AnswerOfTheSenderIsADigitAndWhatIsNoneMeansFailure) {
    using namespace ZBase;
    EXPECT_EQ(detail::AnswerOf(RESULT_SUCCEEDED), '2');
    for (const ReportResult result : {RESULT_FAILED, RESULT_REJECTED, RESULT_SUCCEEDED, RESULT_THROTTLED})
        EXPECT_EQ(detail::ResultOf(detail::AnswerOf(result)), result);
    for (const char other : {'\0', '/', '4', 'x'}) EXPECT_EQ(detail::ResultOf(other), RESULT_FAILED);
}

}  // namespace
