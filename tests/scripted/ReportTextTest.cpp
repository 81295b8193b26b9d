#include <Base/crash/detail/ReportText.h>

#include <gtest/gtest.h>

#include <string>

namespace {

ZBase::WideString Wide(std::u16string_view text) {
    return ZBase::WideString(text.begin(), text.end());
}

TEST(ReportText, IsUtf8UpToTheFirstZero) {
    EXPECT_EQ(ZBase::detail::ReportText(Wide(u"")), "");
    EXPECT_EQ(ZBase::detail::ReportText(Wide(u"a\u00FC\u20AC\U0001F600")),
              "a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(ZBase::detail::ReportText(Wide(std::u16string_view(u"a\0b", 3))), "a");
}

TEST(ReportText, OnlyAUnitThatIsNoCharacterBecomesAMark) {
    const char16_t text[] = {'a', 0xFC, 0xD800, 'b', 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0};
    EXPECT_EQ(ZBase::detail::ReportText(Wide(text)), "a\xC3\xBC?b?\xF0\x9F\x98\x80?");
}

}  // namespace
