#include <Base/text/Guid.h>

#include <gtest/gtest.h>

#include <cstring>

#include "tests/scripted/ScriptedFailure.h"
#include "tests/scripted/ScriptedIdentifiers.h"

namespace {

class GuidOverScript : public testing::Test {
protected:
    GuidOverScript() { test::gIdentifiers = {}; }
};

TEST_F(GuidOverScript, HasTheOctetsOfTheSystemInTheOrderOfItsTextForm) {
    for (int i = 0; i != 16; ++i) test::gIdentifiers.octets[i] = static_cast<unsigned char>(0x11 * i);
    const ZBase::GUID guid;
    EXPECT_EQ(test::Wide(ZBase::Guid2MSString(guid).c_str()), u"{00112233-4455-6677-8899-AABBCCDDEEFF}");
}

TEST_F(GuidOverScript, AnyStatusIsAFailureAlsoThatOfAnIdentifierUniqueHereOnly) {
    test::gIdentifiers.status = 1824;
    test::SetSystemError(7, "Only here.");  // the last code is not used
    const std::u16string text =
        u"ZBase::CreateGUID: ::UuidCreate failed.\nSystem Error 0x00000720 (1824): --- Only here.";
    ZBase::_GUID guid{};
    test::ExpectFailure([&] { ZBase::CreateGUID(guid); }, 1824, text);
    test::ExpectFailure([] { ZBase::GUID(); }, 1824, text);
    EXPECT_EQ(test::gSystemErrors.askedCode, 1824u);
}

}  // namespace
