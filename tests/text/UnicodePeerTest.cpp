// Valid text converts as ICU converts it.

#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>
#include <unicode/ustring.h>

#include <string>

#include "tests/support/WideText.h"

namespace {

using test::Units;

Units IcuFromUtf8(const std::string& octets) {
    std::u16string units(octets.size() + 1, u'\0');
    std::int32_t length = 0;
    UErrorCode code = U_ZERO_ERROR;
    u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, octets.data(),
                  static_cast<std::int32_t>(octets.size()), &code);
    EXPECT_TRUE(U_SUCCESS(code));
    return Units(units.begin(), units.begin() + length);
}

void ExpectPeer(const std::string& octets) {
    const Units units = IcuFromUtf8(octets);
    ASSERT_EQ(test::Text(ZBase::UTF8ToWideChar(octets.c_str(), false)), units) << octets;
    ASSERT_EQ(test::Text(ZBase::WideCharToUTF8(units.c_str(), false)), octets);
    ASSERT_EQ(test::Text(ZBase::UTF16ToUTF8(units.c_str())), octets);
}

TEST(UnicodePeer, SentencesInManyScripts) {
    for (const char* text : {
             "The quick brown fox jumps over the lazy dog",
             "Falsches Üben von Xylophonmusik quält jeden größeren Zwerg",
             "Съешь же ещё этих мягких французских булок, да выпей чаю",
             "Ξεσκεπάζω τὴν ψυχοφθόρα βδελυγμία",
             "דג סקרן שט בים מאוכזב ולפתע מצא לו חברה",
             "نص حكيم له سر قاطع وذو شأن عظيم",
             "ऋषियों को सताने वाले दुष्ट राक्षसों",
             "いろはにほへとちりぬるを 色は匂へど散りぬるを",
             "我能吞下玻璃而不傷身體。",
             "키스의 고유조건은 입술끼리 만나야 하고",
             "เป็นมนุษย์สุดประเสริฐเลิศคุณค่า",
             "𐌼𐌰𐌲 𐌲𐌻𐌴𐍃 𐌹̈𐍄𐌰𐌽, 𝔘𝔫𝔦𝔠𝔬𝔡𝔢, "
             "👩‍👩‍👧‍👦 "
             "🏳️‍🌈",
         }) {
        ExpectPeer(text);
    }
}

TEST(UnicodePeer, AllCharactersInOneText) {
    std::string octets;
    for (UChar32 value = 1; value <= 0x10FFFF; ++value) {
        if (U_IS_SURROGATE(value) || value == 0xFFFE || value == 0xFFFF) continue;
        char sequence[U8_MAX_LENGTH];
        std::size_t length = 0;
        U8_APPEND_UNSAFE(sequence, length, value);
        octets.append(sequence, length);
    }
    ExpectPeer(octets);
}

}  // namespace
