#include "tools/zbase/text/TextScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

TextScan Scanned(std::string_view text, std::size_t size) {
    TextScan scan;
    for (; text.size() > size; text.remove_prefix(size)) scan.Take(text.substr(0, size), false);
    scan.Take(text, false);
    scan.Take({}, true);
    return scan;
}

void ExpectFigures(const TextScan& scan, std::size_t octets, std::size_t characters, std::size_t line,
                   std::size_t column, const std::string& reason) {
    EXPECT_EQ(scan.Octets(), octets);
    EXPECT_EQ(scan.Characters(), characters);
    EXPECT_EQ(scan.Line(), line);
    EXPECT_EQ(scan.Column(), column);
    EXPECT_EQ(scan.Reason(), reason);
}

TEST(TextScan, FiguresAreTheSameInPiecesOfEverySize) {
    const struct {
        std::string text;
        std::size_t octets, characters, line, column;
        const char* reason;
    } rows[] = {
        {"", 0, 0, 1, 1, ""},
        {"a\u00E9\u20AC\U0001F600\n", 11, 5, 2, 1, ""},
        {"\n\nab\n\u20AC\u20AC", 11, 7, 4, 3, ""},
        {"a\0\n\0"s, 4, 4, 2, 2, ""},
        {"first\nse\u00E9\U0001F600\xC0\x80 more\n", 14, 10, 2, 5,
         "ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+0000."},
        {"\xF0\x8F\xBF\xBD\xFF", 4, 1, 1, 2, "ZBase::UTF8ToWideChar: Invalid octet 0xFF."},
        {"ab\xE2\x82", 2, 2, 1, 3, "ZBase::UTF8ToWideChar: Expect more continuation octet data."},
    };
    for (const auto& row : rows) {
        for (std::size_t size = 1; size <= row.text.size() + 1; ++size) {
            SCOPED_TRACE(row.text + " by " + std::to_string(size));
            ExpectFigures(Scanned(row.text, size), row.octets, row.characters, row.line, row.column,
                          row.reason);
        }
    }
}

TEST(TextScan, ReasonOfEveryFlawIsTheSameOverEveryCut) {
    for (const char* bad :
         {"\xE2\x82z", "\xED\xA0\x80", "\xEF\xBF\xBE", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80",
          "\xFC\x84\x80\x80\x80\x80", "\x80", "\xFE", "\xE0\x80\xAF", "\xF0\x9F\x98\n"}) {
        const std::string text = "one\ntwo" + std::string(bad) + "three";
        const TextScan whole = Scanned(text, text.size());
        EXPECT_TRUE(whole.IsFlawed());
        for (std::size_t size = 1; size != text.size(); ++size)
            ExpectFigures(Scanned(text, size), 7, 7, 2, 4, whole.Reason());
    }
}

}  // namespace
