#include <Base/messages/SimpleMessageLocalizer.h>
#include <Base/messages/SystemErrors.h>

#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "tests/scripted/ScriptedSystemErrors.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase;

class SystemErrorsOverScript : public testing::Test {
protected:
    SystemErrorsOverScript() { test::gSystemErrors = {}; }

    void SystemSays(const std::string& text) {
        test::gSystemErrors.text.assign(text.begin(), text.end());
        test::gSystemErrors.result = static_cast<unsigned int>(text.size());
    }
};

TEST_F(SystemErrorsOverScript, DescriptionLosesItsLastTwoUnitsWhateverTheyAre) {
    SystemSays("abcd");
    EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(7, 3).c_str()), u"ab");
}

TEST_F(SystemErrorsOverScript, DescriptionOfTwoUnitsIsEmptyAndOneOfFewerIsNone) {
    SystemSays("\r\n");
    EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(7, 0).c_str()), u"");
    SystemSays("x");
    EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(7, 0).c_str(), nullptr);
    SystemSays("");
    EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(7, 0).c_str(), nullptr);
}

TEST_F(SystemErrorsOverScript, DescriptionMayFillTheBuffer) {
    SystemSays(std::string(252, 'x') + "\r\n");
    EXPECT_EQ(GetWin32APIErrorDescriptionOrNULL(7, 0).GetLength(), 252u);
}

TEST_F(SystemErrorsOverScript, SystemIsAskedForTheCodeInTheLanguageWithRoomFor255Units) {
    GetWin32APIErrorDescriptionOrNULL(0x12345678, 0x407);
    EXPECT_EQ(test::gSystemErrors.askedCode, 0x12345678u);
    EXPECT_EQ(test::gSystemErrors.askedLanguage, 0x407u);
    EXPECT_EQ(test::gSystemErrors.askedCapacity, 255u);
}

TEST_F(SystemErrorsOverScript, KnownCodeIsOneForWhichTheBufferIsTooSmallWhateverTheResult) {
    for (const unsigned int result : {0u, 1u, 40u}) {
        test::gSystemErrors.result = result;
        test::gSystemErrors.codeAfter = 122;
        EXPECT_TRUE(IsSystemError(5));
        test::gSystemErrors.codeAfter = 317;
        EXPECT_FALSE(IsSystemError(5));
        test::gSystemErrors.codeAfter = 0;
        EXPECT_FALSE(IsSystemError(5));
    }
    EXPECT_EQ(test::gSystemErrors.askedCode, 5u);
    EXPECT_EQ(test::gSystemErrors.askedLanguage, 0u);
    EXPECT_EQ(test::gSystemErrors.askedCapacity, 0u);
}

TEST_F(SystemErrorsOverScript, MissingEmptyAndUnknownErrorAreNoDescription) {
    for (const char* text :
         {static_cast<const char*>(nullptr), "", "unknown error", "Unknown error", "UNKNOWN ERROR"}) {
        test::gSystemErrors.description = text;
        EXPECT_EQ(GetStandardCLibraryErrorDescriptionOrNULL(2).c_str(), nullptr);
    }
    EXPECT_EQ(test::gSystemErrors.askedErrorNumber, 2);
}

TEST_F(SystemErrorsOverScript, TextThatOnlyResemblesUnknownErrorIsADescription) {
    for (const char* text :
         {"unknown erro", "unknown error ", " unknown error", "Unknown error 41", "[nknown error"}) {
        test::gSystemErrors.description = text;
        EXPECT_EQ(test::Wide(GetStandardCLibraryErrorDescriptionOrNULL(2).c_str()),
                  std::u16string(text, text + std::string(text).size()));
    }
}

TEST_F(SystemErrorsOverScript, DescriptionThatIsNoTextInTheLocaleIsReplacedNotThrown) {
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    test::gSystemErrors.description = "a\xFFz";
    EXPECT_EQ(test::Wide(GetStandardCLibraryErrorDescriptionOrNULL(2).c_str()), u"a?z");
}

TEST_F(SystemErrorsOverScript, LocalizerAsksForTheIdAsAnUnsignedCodeInTheLanguage) {
    SystemSays("Text.\r\n");
    SimpleMessageLocalizer localizer;
    const char* const none[] = {nullptr};
    EXPECT_STREQ(localizer.LocalizeText(0x407, 100, -1, nullptr, none).c_str(),
                 "Text. (Windows API error -1)");
    EXPECT_EQ(test::gSystemErrors.askedCode, 0xFFFFFFFFu);
    EXPECT_EQ(test::gSystemErrors.askedLanguage, 0x407u);
}

}  // namespace
