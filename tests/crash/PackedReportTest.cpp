#include <Base/ZBase.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <vector>

#include "tests/crash/CrashBench.h"
#include "tests/crash/QuestionedServer.h"

// Large reports are compressed for a server that accepts it.

namespace {

using namespace ZBase::Literals;
using test::QuestionedServer;
using ZBase::CrashReportSender;
using ZBase::WideString;
using Methods = std::vector<std::string>;

constexpr std::size_t kLarge = std::size_t{1} << 20;

WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), false).c_str();
}

// Half of it compresses well, half of it not at all.
std::string Content(std::size_t size) {
    std::string content(size, '\0');
    std::uint32_t state = 1;
    for (std::size_t i = size / 2; i != size; ++i) {
        state = state * 1664525 + 1013904223;
        content[i] = static_cast<char>(state >> 24);
    }
    return content;
}

std::string ContentOf(const std::filesystem::path& path) {
    std::stringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

class PackedReport : public test::CrashBench {
protected:
    ZBase::ReportResult Send(const std::string& server, std::size_t size, WideString* code = nullptr,
                             const CrashReportSender::Fields& parameters = {{"a"_w, "\u20AC"_w}}) {
        std::ofstream(mFolder / "file", std::ios::binary) << Content(size);
        return CrashReportSender(""_w).SendCrashReport(
            Wide(server), parameters, {{"upload_file_minidump"_w, Wide(mFolder / "file")}}, code);
    }
};

TEST_F(PackedReport, ArrivesAsItWas) {
    StartServer();
    for (const std::size_t size : {kLarge, 3 * kLarge + 12345}) {
        WideString code;
        EXPECT_EQ(Send(mServer, size, &code), ZBase::RESULT_SUCCEEDED);
        const int number = size == kLarge ? 1 : 2;
        EXPECT_TRUE(code == Wide(std::to_string(number)));
        EXPECT_EQ(NextReport(), "report " + std::to_string(number) + " (packed)");
        EXPECT_TRUE(ContentOf(mReceived / (std::to_string(number) + ".dmp")) == Content(size));
        EXPECT_EQ(ReceivedKeys(number), (test::CrashKeys{{"a", "\u20AC"}}));
    }
}

TEST_F(PackedReport, SeveralFilesArriveEachAsItWas) {
    StartServer();
    std::ofstream(mFolder / "dump", std::ios::binary) << Content(2 * kLarge);
    std::ofstream(mFolder / "a \"log\"", std::ios::binary) << "--\r\nlines\r\n";
    std::ofstream(mFolder / "empty", std::ios::binary).flush();
    EXPECT_EQ(CrashReportSender(""_w).SendCrashReport(Wide(mServer), {{"empty"_w, ""_w}},
                                                      {{"upload_file_minidump"_w, Wide(mFolder / "dump")},
                                                       {"log"_w, Wide(mFolder / "a \"log\"")},
                                                       {"none"_w, Wide(mFolder / "empty")}},
                                                      nullptr),
              ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(NextReport(), "report 1 (packed)");
    EXPECT_TRUE(ContentOf(mReceived / "1.dmp") == Content(2 * kLarge));
    EXPECT_EQ(ContentOf(mReceived / "1-log"), "--\r\nlines\r\n");
    EXPECT_EQ(ContentOf(mReceived / "1-none"), "");
    EXPECT_EQ(ReceivedKeys(1), (test::CrashKeys{{"empty", ""}}));
}

TEST_F(PackedReport, SmallOneIsNotAskedAbout) {
    QuestionedServer server("204 Nothing\r\nAccept-Encoding: gzip", "200 OK", "200 OK");
    EXPECT_EQ(Send(server.Address(), kLarge - 1), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(server.Requests(), (Methods{"POST"}));
}

TEST_F(PackedReport, ServerMaySayThatItTakesThemInManyWays) {
    for (const char* words :
         {"204 Nothing\r\nAccept-Encoding: gzip", "200 OK\r\naccept-encoding:gzip",
          "200 OK\r\nACCEPT-ENCODING: br, GZIP", "299 Last\r\nAccept-Encoding: gzip;q=0.5, identity",
          "200 OK\r\nAccept-Encoding: br\r\nAccept-Encoding: gzip"}) {
        QuestionedServer server(words, "200 OK", "500 Broken");
        EXPECT_EQ(Send(server.Address(), kLarge), ZBase::RESULT_SUCCEEDED) << words;
        EXPECT_EQ(server.Requests(), (Methods{"OPTIONS", "packed POST"})) << words;
    }
}

TEST_F(PackedReport, ServerThatDoesNotSayThatItTakesThemGetsThemPlain) {
    for (const char* words :
         {"200 OK", "200 OK\r\nAccept-Encoding: identity", "200 OK\r\nAccept-Encoding: gzip;q=0",
          "200 OK\r\nAccept-Encoding: br, gzip; q=0.0", "200 OK\r\nAccept-Encoding: gzipped",
          "200 OK\r\nAccept-Encoding:", "200 OK\r\nX-Accept-Encoding: gzip",
          "404 Nowhere\r\nAccept-Encoding: gzip", "500 Broken\r\nAccept-Encoding: gzip"}) {
        QuestionedServer server(words, "500 Broken", "200 OK");
        EXPECT_EQ(Send(server.Address(), kLarge), ZBase::RESULT_SUCCEEDED) << words;
        EXPECT_EQ(server.Requests(), (Methods{"OPTIONS", "POST"})) << words;
    }
}

TEST_F(PackedReport, RefusedOneIsSentAgainAsItIs) {
    for (const char* refusal : {"415 Unsupported", "400 Bad"}) {
        QuestionedServer server("204 Nothing\r\nAccept-Encoding: gzip", refusal, "200 OK");
        WideString code;
        EXPECT_EQ(Send(server.Address(), kLarge, &code), ZBase::RESULT_SUCCEEDED);
        EXPECT_TRUE(code == "ok"_w);
        EXPECT_EQ(server.Requests(), (Methods{"OPTIONS", "packed POST", "POST"}));
    }
}

TEST_F(PackedReport, ServerThatFailsIsNotAskedTwice) {
    QuestionedServer server("204 Nothing\r\nAccept-Encoding: gzip", "503 Busy", "200 OK");
    EXPECT_EQ(Send(server.Address(), kLarge), ZBase::RESULT_FAILED);
    EXPECT_EQ(server.Requests(), (Methods{"OPTIONS", "packed POST"}));
}

TEST_F(PackedReport, ServerThatIsSilentToTheQuestionGetsThemPlain) {
    QuestionedServer server("", "500 Broken", "200 OK");
    EXPECT_EQ(Send(server.Address(), kLarge), ZBase::RESULT_SUCCEEDED);
    EXPECT_EQ(server.Requests(), (Methods{"OPTIONS", "POST"}));
}

TEST_F(PackedReport, NamesThatAreNotPrintableAreRefusedAsElsewhere) {
    QuestionedServer server("204 Nothing\r\nAccept-Encoding: gzip", "200 OK", "200 OK");
    EXPECT_EQ(Send(server.Address(), kLarge, nullptr, {{"a\"b"_w, "x"_w}}), ZBase::RESULT_FAILED);
    for (const std::string& request : server.Requests()) EXPECT_EQ(request, "OPTIONS");
}

}  // namespace
