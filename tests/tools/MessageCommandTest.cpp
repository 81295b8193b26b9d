#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/MessageTrees.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/XmlDocuments.h"

namespace {

using test::ChildResult;
using ZBase::Message;

ChildResult ShowMessage(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), {ZBASE_COMMAND, "message"});
    return test::RunChild(arguments, {"LC_ALL=C.UTF-8"}, input);
}

constexpr char kDocument[] =
    "<message><domain>Server</domain><id>110</id><template>Cannot load "
    "%1.</template><parameter>names\n.txt</parameter>"
    "<text language_id=\"407\">Geht nicht.</text>"
    "<lower_level_message><domain>Windows Standard C Library</domain><id>2</id></lower_level_message>"
    "<same_level_message><parameter>&#x9B;31m</parameter></same_level_message></message>";

TEST(MessageCommand, ShowsOneMessageALine) {
    const ChildResult child = ShowMessage({}, kDocument);
    EXPECT_EQ(child.errors, "");
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_EQ(
        child.output,
        "Server 110  Cannot load names\\n.txt. (Server message 110)\n"
        "  Windows Standard C Library 2  No such file or directory (Windows Standard C Library error 2)\n"
        "Unknown 0  Unknown error.[\\x9B31m] (Unknown message 0)\n");
}

TEST(MessageCommand, ShowsParametersTextsAndALanguageOnRequest) {
    EXPECT_EQ(
        ShowMessage({"--parameters", "--texts", "--language", "0x407", "-"}, kDocument).output,
        "Server 110  Geht nicht.\n    %1 names\\n.txt\n    0407 Geht nicht.\n"
        "  Windows Standard C Library 2  No such file or directory (Windows Standard C Library error 2)\n"
        "Unknown 0  Unknown error.[\\x9B31m] (Unknown message 0)\n    %1 \\x9B31m\n");
    EXPECT_EQ(ShowMessage({"-l", "1031"}, kDocument).output.substr(0, 23), "Server 110  Geht nicht.");
}

TEST(MessageCommand, WritesJson) {
    const ChildResult child = ShowMessage({"--json"}, kDocument);
    EXPECT_EQ(
        child.output,
        "[\n"
        "{\"number\":0,\"relation\":\"root\",\"parent\":null,\"level\":0,\"domain\":300,\"domain_name\":"
        "\"Server\","
        "\"id\":110,\"message\":\"Cannot load names\\n.txt. (Server message 110)\",\"template\":\"Cannot "
        "load %1.\","
        "\"parameters\":[\"names\\n.txt\"],\"texts\":{\"407\":\"Geht nicht.\"}},\n"
        "{\"number\":1,\"relation\":\"lower_level\",\"parent\":0,\"level\":1,\"domain\":10,\"domain_name\":"
        "\"Windows Standard C Library\",\"id\":2,\"message\":\"No such file or directory (Windows Standard C "
        "Library error 2)\",\"template\":null,\"parameters\":[],\"texts\":{}},\n"
        "{\"number\":2,\"relation\":\"same_level\",\"parent\":0,\"level\":0,\"domain\":0,\"domain_name\":"
        "\"Unknown\","
        "\"id\":0,\"message\":\"Unknown error.[\xC2\x9B"
        "31m] (Unknown message 0)\",\"template\":null,"
        "\"parameters\":[\"\xC2\x9B"
        "31m\"],\"texts\":{}}\n]\n");
}

class MessageCommandFile : public test::ScratchFolder {};

TEST_F(MessageCommandFile, IsShownInEveryForm) {
    const std::string file = Write("a record.xml", "<m><id>7</id></m>");
    EXPECT_EQ(ShowMessage({file}).output, "Unknown 7  Unknown error. (Unknown message 7)\n");
    const ChildResult xml = ShowMessage({"--xml", file});
    EXPECT_EQ(xml.errors, "");
    Message message;
    test::FromXML(xml.output, message);
    EXPECT_EQ(test::DescribeTree(message), test::DescribeTree(Message(0, 7, nullptr)));
    EXPECT_EQ(ShowMessage({file, "--xml"}).output, xml.output);
    EXPECT_EQ(ShowMessage({"--json", file}).output, ShowMessage({"--json"}, "<m><id>7</id></m>").output);
}

// On a terminal, where a line ends in two characters.
TEST_F(MessageCommandFile, IsColouredOnATerminalOnly) {
    const std::string file = Write("record.xml", kDocument);
    const auto onTerminal = [&](const std::string& options) {
        return test::RunChild({"/usr/bin/script", "--quiet", "--return", "--command",
                               ZBASE_COMMAND " message " + options + " " + file, "/dev/null"},
                              {"LC_ALL=C.UTF-8"})
            .output;
    };
    EXPECT_EQ(
        onTerminal("--parameters --texts"),
        "\033[36mServer\033[0m \033[1m110\033[0m  Cannot load names\\n.txt. (Server message 110)\r\n"
        "    \033[33m%1\033[0m names\\n.txt\r\n"
        "    \033[32m0407\033[0m Geht nicht.\r\n"
        "  \033[36mWindows Standard C Library\033[0m \033[1m2\033[0m  No such file or directory (Windows "
        "Standard C Library error 2)\r\n"
        "\033[36mUnknown\033[0m \033[1m0\033[0m  Unknown error.[\\x9B31m] (Unknown message 0)\r\n"
        "    \033[33m%1\033[0m \\x9B31m\r\n");
    EXPECT_EQ(ShowMessage({"--parameters", "--texts", file}).output.find('\033'), std::string::npos);
    for (const std::string form : {"--xml", "--json"})
        EXPECT_EQ(onTerminal(form).find('\033'), std::string::npos) << form;
}

void ExpectComplaint(const ChildResult& child, int exitCode, const std::string& what,
                     const std::string& shown = "") {
    EXPECT_EQ(child.exitCode, exitCode);
    EXPECT_EQ(child.output, shown);
    EXPECT_EQ(child.errors, "zbase: " + what + "\n");
}

TEST(MessageCommand, ComplainsInOneLine) {
    ExpectComplaint(ShowMessage({}, "<m>\n</n>"), 1, "-: Line 2, column 3: mismatched tag.");
    ExpectComplaint(ShowMessage({}, "<!DOCTYPE m [<!ENTITY a 'b'>]><m/>"), 1,
                    "-: Line 1, column 25: entity \"a\" declared.");
    ExpectComplaint(ShowMessage({}, "<m><text language_id=\"en\"/></m>"), 1,
                    "-: ZBase::HexToUnsignedInt: failed to parse 'en'.");
    ExpectComplaint(ShowMessage({"/no/such/file"}), 1, "/no/such/file: No such file or directory");
    EXPECT_EQ(ShowMessage({"--xml", "--json"}, "<m/>").exitCode, 2);
    EXPECT_EQ(ShowMessage({"--language", "German"}, "<m/>").exitCode, 2);
    EXPECT_EQ(ShowMessage({"--language", "65536"}, "<m/>").exitCode, 2);
}

TEST(MessageCommand, EndlessInputEndsAtTheBound) {
    const ChildResult child = test::RunChild(
        {"/bin/bash", "-c", "(echo '<m>'; yes '<parameter>p</parameter>') | " ZBASE_COMMAND " message"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_NE(child.errors.find("more than 67108864 bytes"), std::string::npos) << child.errors;
}

TEST(MessageCommand, BoundsCanBeSet) {
    const std::string document = "<m><a><b/></a><id>7</id></m>";
    ExpectComplaint(ShowMessage({"--depth", "1"}, document), 1, "-: Line 1, column 7: more than 1 levels.");
    EXPECT_EQ(ShowMessage({"--depth", "2"}, document).exitCode, 0);
    ExpectComplaint(ShowMessage({"--size", "27"}, document), 1, "-: The document has more than 27 bytes.",
                    "Unknown 7  Unknown error. (Unknown message 7)\n");
    EXPECT_EQ(ShowMessage({"--size", "28"}, document).exitCode, 0);
    EXPECT_EQ(ShowMessage({"--size", "1KB"}, document).exitCode, 0);
    EXPECT_EQ(ShowMessage({"--size", "much"}, document).exitCode, 2);

    std::string deep;
    for (int level = 0; level < 20000; ++level) deep += "<lower_level_message>";
    for (int level = 0; level < 20000; ++level) deep += "</lower_level_message>";
    EXPECT_EQ(ShowMessage({}, deep).exitCode, 1);
    EXPECT_EQ(ShowMessage({"--depth", "20000"}, deep).exitCode, 0);
}

TEST(MessageCommand, BoundsAreNumbersOf64Bits) {
    const std::string most = "18446744073709551615";
    const std::string more = "18446744073709551616";
    const std::vector<std::string> refused = {"-1", " -1", "-" + most, more, more + "0"};
    for (const std::string option : {"--depth", "--size"}) {
        EXPECT_EQ(ShowMessage({option, most}, "<m/>").exitCode, 0);
        for (const std::string& value : refused) {
            ExpectComplaint(ShowMessage({option, value}, "<m/>"), 2,
                            option + ": " + value + " is no number from 0 to " + most + "; see zbase --help");
        }
    }
    for (const std::string& size : std::vector<std::string>{"-1KB", more + "B", "16777216TB"})
        EXPECT_EQ(ShowMessage({"--size", size}, "<m/>").exitCode, 2) << size;
    EXPECT_EQ(ShowMessage({"--language", "-" + most}, "<m/>").exitCode, 2);  // 1 modulo 2^64
}

TEST(MessageCommand, ShowsWhatArrivedOfADocumentThatWasCutOff) {
    const std::string cut = "<m><id>7</id><lower_level_message><id>8</id><same_level_message><id>9</id><id>1";
    const std::string failure = "-: Line 1, column 80: no element found.";
    ExpectComplaint(ShowMessage({}, cut), 1, failure,
                    "Unknown 7  Unknown error. (Unknown message 7)\n"
                    "  Unknown 8  Unknown error. (Unknown message 8)\n"
                    "  Unknown 9  Unknown error. (Unknown message 9)\n");
    Message message;
    test::FromXML(ShowMessage({"--xml"}, cut).output, message);
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetSameLevelMessageOrNULL()->GetID(), 9);
    EXPECT_TRUE(ShowMessage({"--json"}, cut).output.ends_with("\n]\n"));
}

// At every position: never more than was there, never another order, never a crash.
TEST(MessageCommand, TakesADocumentThatIsCutOffAnywhere) {
    const std::string document(kDocument);
    for (std::size_t length = 0; length < document.size(); length += 7) {
        const ChildResult child = ShowMessage({}, document.substr(0, length));
        EXPECT_EQ(child.exitCode, 1) << length;
        EXPECT_TRUE(child.errors.starts_with("zbase: -: Line ")) << child.errors;
    }
}

TEST(MessageCommand, ManyFieldsAreShownInTheirOrder) {
    std::string document = "<m>";
    for (int number = 0; number < 100000; ++number) document += "<parameter>p</parameter>";
    for (int number = 0; number < 0xFFFF; ++number)
        document +=
            "<text language_id=\"" + std::string(ZBase::ToHexUpperString(number).c_str()) + "\">t</text>";
    for (const char* form : {"--parameters", "--json", "--xml"}) {
        const ChildResult child = ShowMessage({form}, document + "</m>");
        EXPECT_EQ(child.exitCode, 0) << child.errors;
    }
}

TEST(MessageCommand, WritesWhatXmlCannotHoldAsReplacements) {
    Message message(300, 1, "%1");
    message << "caf\xE9\x1B";
    const ChildResult child = ShowMessage({"--xml"}, test::ToXML(message, {.replace = true}));
    EXPECT_NE(child.output.find("<parameter>caf\xEF\xBF\xBD\xEF\xBF\xBD</parameter>"), std::string::npos);
}

TEST(MessageCommand, RandomTreesComeBackEqualFromASecondProcess) {
    for (unsigned int seed = 1000; seed < 1040; ++seed) {
        Message message;
        test::FillAtRandom(message, seed);
        const ChildResult child = ShowMessage({"--xml"}, test::ToXML(message));
        ASSERT_EQ(child.errors, "") << seed;
        Message back;
        test::FromXML(child.output, back);
        ASSERT_EQ(test::DescribeTree(back), test::DescribeTree(message)) << seed;
    }
}

TEST(MessageCommand, IndependentReaderFindsTheSame) {
    for (unsigned int seed = 2000; seed < 2020; ++seed) {
        Message message;
        test::FillAtRandom(message, seed);
        const std::string document = test::ToXML(message);
        const ChildResult lint =
            test::RunChild({"/usr/bin/xmllint", "--nonet", "--huge", "--format", "-"}, {}, document);
        ASSERT_EQ(lint.exitCode, 0) << lint.errors;
        Message back;
        test::FromXML(lint.output, back);
        ASSERT_EQ(test::DescribeTree(back), test::DescribeTree(message)) << seed;
    }
}

TEST(MessageCommand, DeepTreesAreShownInEveryForm) {
    std::string document;
    for (int level = 0; level < 10000; ++level)
        document += level == 0 ? "<m>" : "<lower_level_message><id>1</id>";
    for (int level = 9999; level >= 0; --level) document += level == 0 ? "</m>" : "</lower_level_message>";
    EXPECT_EQ(std::count(document.begin(), document.end(), '/'), 19999);
    for (const char* form : {"--texts", "--xml", "--json"}) {
        const ChildResult child = ShowMessage({form}, document);
        EXPECT_EQ(child.exitCode, 0) << child.errors;
        EXPECT_LT(child.output.size(), 10u << 20);
    }
}

}  // namespace
