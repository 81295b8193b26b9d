#include <Base/ZBase.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "tests/crash/CrashBench.h"
#include "tests/crash/FixedServer.h"

// The sender in this process: its results and its count of reports.

namespace {

using namespace ZBase::Literals;
using ZBase::CrashReportSender;
using ZBase::WideString;

WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), false).c_str();
}

std::string Today() {
    const std::chrono::year_month_day day =
        std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
    char text[16];
    std::snprintf(text, sizeof text, "%d%02u%02u", static_cast<int>(day.year()),
                  static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
    return text;
}

class CrashReportSenderTest : public test::CrashBench {
protected:
    void SetUp() override {
        StartServer();
        std::ofstream(mFolder / "file") << "content";
    }

    ZBase::ReportResult Send(CrashReportSender& sender, const WideString& url,
                             const CrashReportSender::Fields& parameters = {}, WideString* code = nullptr) {
        return sender.SendCrashReport(url, parameters, {{"upload_file_minidump"_w, Wide(mFolder / "file")}},
                                      code);
    }

    std::string Checkpoint() const {
        std::stringstream content;
        content << std::ifstream(mFolder / "checkpoint").rdbuf();
        return content.str();
    }
};

TEST_F(CrashReportSenderTest, GivesTheReportCodeOfASuccess) {
    CrashReportSender sender(""_w);
    WideString code;
    EXPECT_EQ(Send(sender, Wide(mServer), {{"a"_w, "\u20AC"_w}}, &code), ZBase::RESULT_SUCCEEDED);
    EXPECT_TRUE(code == "1"_w);
    EXPECT_EQ(ReceivedKeys(1), (test::CrashKeys{{"a", "\u20AC"}}));
    EXPECT_EQ(Send(sender, Wide(mServer)), ZBase::RESULT_SUCCEEDED);  // the code is not read
}

TEST_F(CrashReportSenderTest, LeavesTheReportCodeOfAFailure) {
    CrashReportSender sender(""_w);
    WideString code = "before"_w;
    EXPECT_EQ(Send(sender, "http://127.0.0.1:1/"_w, {}, &code), ZBase::RESULT_FAILED);
    EXPECT_TRUE(code == "before"_w);
}

TEST_F(CrashReportSenderTest, TakesNoMoreThanAPartOfAnAnswerWithoutEnd) {
    const test::FixedServer server(test::Manner::eAnswerWithoutEnd, "HTTP/1.1 200 OK\r\n\r\n");
    CrashReportSender sender(""_w);
    WideString code;
    EXPECT_EQ(Send(sender, Wide(server.Address()), {}, &code), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(code.size(), 65536u);
    EXPECT_EQ(Send(sender, Wide(server.Address())), ZBase::RESULT_SUCCEEDED);
}

TEST_F(CrashReportSenderTest, TellsThatTheServerRejects) {
    CrashReportSender sender(""_w);
    EXPECT_EQ(sender.SendCrashReport(Wide(mServer), {}, {{"other"_w, Wide(mFolder / "file")}}, nullptr),
              ZBase::RESULT_REJECTED);  // the server requires a dump
}

TEST_F(CrashReportSenderTest, RefusesNamesThatAreNotPrintableAscii) {
    CrashReportSender sender(""_w);
    for (const auto* name : {""_w, "a\"b"_w, "\u00E9"_w, "a\nb"_w}) {
        EXPECT_EQ(Send(sender, Wide(mServer), {{name, "x"_w}}), ZBase::RESULT_FAILED);
    }
    EXPECT_TRUE(ReceivedDumps().empty());
}

TEST_F(CrashReportSenderTest, FailsWithoutTheFile) {
    CrashReportSender sender(""_w);
    EXPECT_EQ(
        sender.SendCrashReport(Wide(mServer), {}, {{"upload_file_minidump"_w, "/no/such/file"_w}}, nullptr),
        ZBase::RESULT_FAILED);
}

TEST_F(CrashReportSenderTest, CountsTheReportsOfTheDayInItsFile) {
    const WideString checkpoint = Wide(mFolder / "checkpoint");
    CrashReportSender first(checkpoint);
    EXPECT_EQ(first.max_reports_per_day(), -1);
    EXPECT_EQ(Send(first, Wide(mServer)), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(Checkpoint(), "GBP1\n" + Today() + "\n1\n");
    CrashReportSender second(checkpoint);
    second.set_max_reports_per_day(2);
    EXPECT_EQ(Send(second, Wide(mServer)), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(Send(second, Wide(mServer)), ZBase::RESULT_THROTTLED);
    EXPECT_EQ(Checkpoint(), "GBP1\n" + Today() + "\n2\n");
    EXPECT_EQ(ReceivedDumps().size(), 2u);
}

TEST_F(CrashReportSenderTest, ReportsOfAnotherDayDoNotCount) {
    std::ofstream(mFolder / "checkpoint") << "GBP1\n20010203\n99\n";
    CrashReportSender sender(Wide(mFolder / "checkpoint"));
    sender.set_max_reports_per_day(1);
    EXPECT_EQ(Send(sender, Wide(mServer)), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(Send(sender, Wide(mServer)), ZBase::RESULT_THROTTLED);
}

TEST_F(CrashReportSenderTest, FileThatIsNoneOfItsOwnCountsForNothing) {
    std::ofstream(mFolder / "checkpoint") << "something else\n" << Today() << "\n99\n";
    CrashReportSender sender(Wide(mFolder / "checkpoint"));
    sender.set_max_reports_per_day(1);
    EXPECT_EQ(Send(sender, Wide(mServer)), ZBase::RESULT_SUCCEEDED);
}

}  // namespace
