#include "tests/support/Allocations.h"

#include <Base/frame/WideLiteral.h>
#include <Base/messages/MessageTreeText.h>

#include "tests/messages/RecordingLocalizer.h"

#include <gtest/gtest.h>

#include <string>

using ZBase::FormatTree;
using ZBase::Message;
using ZBase::TreeOptions;
using namespace ZBase::Literals;

TEST(MessageTreeText, HasALineForEachMessageIndentedByItsLevel) {
    Message message(300, 103, "%1 is not text.");
    message << "names.txt";
    message.PrependBy(300, 7, "before");
    message.WrapBy(300, 110, "Process %1 could not load its text.") << 7;
    EXPECT_STREQ(FormatTree(message).c_str(),
                 "Server 110  Process 7 could not load its text. (Server message 110)\n"
                 "  Server 7  before (Server message 7)\n"
                 "  Server 103  names.txt is not text. (Server message 103)\n");
}

TEST(MessageTreeText, OfAnEmptyMessageIsOneLine) {
    EXPECT_STREQ(FormatTree(Message()).c_str(), "Unknown 0  Unknown error. (Unknown message 0)\n");
}

TEST(MessageTreeText, EscapesWhatWouldBreakALineOrATerminal) {
    Message message(0, -1, nullptr);
    message.SetMessage("a\nb\r\x1B[31mc\x7F\u0085\u00E9\u20AC\r\n"_w);
    EXPECT_STREQ(FormatTree(message).c_str(), "Unknown -1  a\\nb\\r\\x1B[31mc\\x7F\\x85\u00E9\u20AC\n");
}

TEST(MessageTreeText, ATextThatEndsInsideACharacterIsReadNoFurther) {
    Message message(0, -1, nullptr);
    message.SetLocalizedText(0, "cut \xC2");
    EXPECT_STREQ(FormatTree(message).c_str(), "Unknown -1  cut \xC2\n");
}

TEST(MessageTreeText, ShowsParametersAndTextsBehindTheirMessage) {
    Message message(300, 1, "inner");
    message << "own\ttab";
    message.SetLocalizedText(0x407, "innen");
    message.WrapBy(300, 2, "outer");
    EXPECT_STREQ(FormatTree(message, {.parameters = true, .texts = true}).c_str(),
                 "Server 2  outer (Server message 2)\n"
                 "  Server 1  inner[own\\x09tab] (Server message 1)\n"
                 "      %1 own\\x09tab\n"
                 "      0407 innen\n");
}

TEST(MessageTreeText, GoesByLanguageAndLocalizer) {
    Message message(300, 1, "inner");
    message.SetLocalizedText(0x407, "innen");
    test::RecordingLocalizer localizer("by the localizer");
    EXPECT_STREQ(FormatTree(message, {.language = 0x407, .localizer = &localizer}).c_str(),
                 "Server 1  innen\n");
    EXPECT_STREQ(FormatTree(message, {.localizer = &localizer}).c_str(), "Server 1  by the localizer\n");
    test::RecordingLocalizer silent(nullptr);
    EXPECT_STREQ(FormatTree(message, {.localizer = &silent}).c_str(), "Server 1  Unknown.\n");
}

TEST(MessageTreeText, ColoursOnlyWhenAsked) {
    const Message message(300, 1, "text");
    EXPECT_STREQ(FormatTree(message, {.colour = true}).c_str(),
                 "\033[36mServer\033[0m \033[1m1\033[0m  text (Server message 1)\n");
}

TEST(MessageTreeText, StopsIndentingAtTheThirtySecondLevel) {
    Message message(300, 0, nullptr);
    for (int i = 1; i != 41; ++i) message.WrapBy(300, i, nullptr);
    const std::string text = FormatTree(message).c_str();
    EXPECT_NE(text.find("\n" + std::string(64, ' ') + "Server 8 "), std::string::npos);
    EXPECT_NE(text.find("\n" + std::string(64, ' ') + "Server 0 "), std::string::npos);
    EXPECT_EQ(text.find(std::string(65, ' ')), std::string::npos);
}
