#include <Base/messages/SystemErrors.h>

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "tests/support/WideText.h"

namespace {

using namespace ZBase;

TEST(ErrorNumbersDescription, IsTheCLibrarysForEveryNumberThatItKnows) {
    int known = 0;
    for (int number = 0; number <= 4096; ++number) {
        const char* expected = strerrordesc_np(number);
        const ReturnWString text = GetStandardCLibraryErrorDescriptionOrNULL(number);
        if (expected == nullptr) {
            EXPECT_EQ(text.c_str(), nullptr) << number;
            continue;
        }
        ++known;
        EXPECT_EQ(test::Wide(text.c_str()), std::u16string(expected, expected + std::strlen(expected)));
    }
    EXPECT_GE(known, 130);
}

// The symbols are the library's own, the descriptions this system's: the numbers that the header lists, and
// no others.
TEST(ErrorNumbersDescription, TellsAnotherErrorThanTheSymbolWhereTheHeaderSaysSo) {
    std::map<int, std::string> others;
    for (int number = 0; number <= 200; ++number) {
        const ReturnString symbol = GetStandardCLibraryErrorSymbolOrNULL(number);
        if (symbol.c_str() == nullptr) continue;
        const char* name = strerrorname_np(number);
        if (name == nullptr || std::strcmp(name, symbol.c_str()) != 0)
            others[number] = name == nullptr ? "none" : name;
    }
    EXPECT_EQ(others, (std::map<int, std::string>{{36, "ENAMETOOLONG"},
                                                  {38, "ENOSYS"},
                                                  {39, "ENOTEMPTY"},
                                                  {40, "ELOOP"},
                                                  {41, "none"},
                                                  {42, "ENOMSG"},
                                                  {139, "none"}}));
}

}  // namespace
