#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/WideText.h"

namespace {

using ZBase::_UDID;

bool IsNull(const _UDID& udid) {
    return std::memcmp(&udid, &ZBase::UDID_NULL, sizeof udid) == 0;
}

_UDID Counting() {
    _UDID udid;
    for (unsigned int i = 0; i != 20; ++i) udid.octets[i] = static_cast<unsigned char>(0xF0 + i);
    return udid;
}

TEST(Udid, NullIsTwentyZeroBytes) {
    static_assert(sizeof(_UDID) == 20);
    for (const unsigned char octet : ZBase::UDID_NULL.octets) EXPECT_EQ(octet, 0);
    EXPECT_EQ(test::Text(ZBase::Udid2String(ZBase::UDID_NULL)), test::Units(40, '0'));
}

TEST(Udid, BytesAreDigitsInTheirOrder) {
    EXPECT_EQ(test::Wide(ZBase::Udid2String(Counting()).c_str()),
              u"F0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF00010203");
}

TEST(Udid, IsReadInEitherCase) {
    for (const char* text :
         {"F0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF00010203", "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff00010203"}) {
        _UDID udid;
        EXPECT_TRUE(ZBase::String2Udid(udid, test::ToUnits(text).c_str()));
        const _UDID expected = Counting();
        EXPECT_EQ(std::memcmp(&udid, &expected, sizeof udid), 0);
    }
}

TEST(Udid, EveryOtherLengthAndNullAreRefused) {
    _UDID udid = Counting();
    EXPECT_FALSE(ZBase::String2Udid(udid, nullptr));
    EXPECT_TRUE(IsNull(udid));
    for (std::size_t length = 0; length != 100; ++length) {
        udid = Counting();
        EXPECT_EQ(ZBase::String2Udid(udid, test::Units(length, '1').c_str()), length == 40);
        EXPECT_EQ(IsNull(udid), length != 40);
    }
}

TEST(Udid, OneBadDigitAnywhereIsRefused) {
    for (std::size_t place = 0; place != 40; ++place) {
        for (const unsigned short unit : {'G', 'g', ' ', '-', '+', 'x', '/', ':', '@', '`', '\xC1', '\n'}) {
            test::Units text(40, '1');
            text[place] = unit;
            _UDID udid = Counting();
            EXPECT_FALSE(ZBase::String2Udid(udid, text.c_str())) << place << ' ' << unit;
            EXPECT_TRUE(IsNull(udid));
        }
    }
}

}  // namespace
