#include "tools/zbase/terminal/Console.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;

TEST(Console, PlainTextOfAnyScriptIsShownAsItIs) {
    for (const char* text :
         {"", "plain", "caf\u00E9 \u65E5\u672C \U0001F600\U0010FFFF", "\u007E\u00A0\uFFFD"})
        EXPECT_EQ(Shown(text), text);
}

TEST(Console, ControlsAndTurnsOfTheTextComeOctetByOctet) {
    EXPECT_EQ(Shown("a\0\x1B\x7F\n"s), "a\\x00\\x1B\\x7F\\x0A");
    EXPECT_EQ(Shown("\u0080\u009F\u00A0"), "\\xC2\\x80\\xC2\\x9F\u00A0");
    EXPECT_EQ(Shown("\u061C\u200E\u2028\u202E\u2066\u2069"),
              "\\xD8\\x9C\\xE2\\x80\\x8E\\xE2\\x80\\xA8\\xE2\\x80\\xAE\\xE2\\x81\\xA6\\xE2\\x81\\xA9");
}

TEST(Console, WhatIsNoUtf8ComesOctetByOctet) {
    EXPECT_EQ(Shown("a\xFFz"), "a\\xFFz");
    EXPECT_EQ(Shown("\xE2\x82"), "\\xE2\\x82");
    EXPECT_EQ(Shown("\xC0\x80|\xED\xA0\x80|\xF4\x90\x80\x80"),
              "\\xC0\\x80|\\xED\\xA0\\x80|\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(Shown("\xF0\x8F\xBF\xBD"), "\\xF0\\x8F\\xBF\\xBD");  // an overlong U+FFFD
    EXPECT_EQ(Shown("\xE2\x82\xE2\x82\xAC"), "\\xE2\\x82\u20AC");
}

}  // namespace
