#include <Base/messages/SimpleMessageLocalizer.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <new>
#include <string>
#include <utility>

#include "tests/support/Allocations.h"

namespace {

using namespace ZBase;

std::string Text(unsigned short domain, int id, const char* textTemplate = nullptr,
                 const char* const* parameters = nullptr, unsigned short language = 0x409) {
    const char* const none[] = {nullptr};
    SimpleMessageLocalizer localizer;
    const ReturnString text =
        localizer.LocalizeText(language, domain, id, textTemplate, parameters != nullptr ? parameters : none);
    return text.c_str() == nullptr ? "(null)" : text.c_str();
}

const char* const kTwo[] = {"file.txt", "b", nullptr};

TEST(SimpleMessageLocalizer, ErrorNumberHasTheCLibrarysDescription) {
    EXPECT_EQ(Text(10, 2), "No such file or directory (Windows Standard C Library error 2)");
}

TEST(SimpleMessageLocalizer, ErrorNumberWithoutDescriptionIsUnknown) {
    EXPECT_EQ(Text(10, 41), "Unknown error. (Windows Standard C Library error 41)");
    EXPECT_EQ(Text(10, -1), "Unknown error. (Windows Standard C Library error -1)");
}

TEST(SimpleMessageLocalizer, SystemCodeHasTheSystemsDescription) {
    EXPECT_EQ(Text(100, 5), "Access is denied. (Windows API error 5)");
    EXPECT_EQ(Text(100, 5, nullptr, nullptr, 0), "Access is denied. (Windows API error 5)");
}

TEST(SimpleMessageLocalizer, SystemCodeWithoutDescriptionIsUnknown) {
    EXPECT_EQ(Text(100, 0x20000001), "Unknown error. (Windows API error 536870913)");
    EXPECT_EQ(Text(100, -1), "Unknown error. (Windows API error -1)");
}

TEST(SimpleMessageLocalizer, OnlyTheSystemsDescriptionsDependOnTheLanguage) {
    EXPECT_EQ(Text(100, 5, nullptr, nullptr, 0x407), "Unknown error. (Windows API error 5)");
    for (const auto language : std::initializer_list<unsigned short>{0, 0x407, 0x409, 0xFFFF}) {
        EXPECT_EQ(Text(10, 13, nullptr, nullptr, language),
                  "Permission denied (Windows Standard C Library error 13)");
        EXPECT_EQ(Text(300, 1, "x", nullptr, language), "x (Server message 1)");
    }
}

TEST(SimpleMessageLocalizer, ExceptionHasItsSymbolAndNoBracket) {
    EXPECT_EQ(Text(101, static_cast<int>(0xC0000005)), "Windows exception EXCEPTION_ACCESS_VIOLATION");
    EXPECT_EQ(Text(101, static_cast<int>(0xE06D7363)), "Windows exception 0xE06D7363");
    EXPECT_EQ(Text(101, 0), "Windows exception 0x00000000");
}

TEST(SimpleMessageLocalizer, DomainsWithDescriptionsIgnoreTemplateAndParameters) {
    EXPECT_EQ(Text(10, 2, "Cannot open %1", kTwo),
              "No such file or directory (Windows Standard C Library error 2)");
    EXPECT_EQ(Text(100, 5, "Cannot open %1", kTwo), "Access is denied. (Windows API error 5)");
    EXPECT_EQ(Text(101, 0x12345, "Cannot open %1", kTwo), "Windows exception 0x00012345");
}

TEST(SimpleMessageLocalizer, OtherDomainsMergeTheTemplateAndNameTheirOrigin) {
    const char* const one[] = {"file.txt", nullptr};
    EXPECT_EQ(Text(300, 42, "Cannot open %1", one), "Cannot open file.txt (Server message 42)");
    EXPECT_EQ(Text(300, 42, "Cannot open %1", kTwo), "Cannot open file.txt[b] (Server message 42)");
    EXPECT_EQ(Text(300, 42, "", nullptr), " (Server message 42)");
    EXPECT_EQ(Text(300, -2147483647 - 1, "x"), "x (Server message -2147483648)");
}

TEST(SimpleMessageLocalizer, EveryOtherDomainIsNamedInTheBracket) {
    const std::pair<unsigned short, const char*> rows[] = {
        {0, "Unknown"},
        {11, "Solaris Standard C Library"},
        {12, "AIX Standard C Library"},
        {13, "Linux Standard C Library"},
        {14, "HP-UX Standard C Library"},
        {15, "APPLE Standard C Library"},
        {200, "UNIX Dynamic Linking"},
        {210, "Solaris Signal"},
        {211, "AIX Signal"},
        {212, "Linux Signal"},
        {213, "HP-UX Signal"},
        {214, "APPLE Signal"},
        {300, "Server"},
        {999, "Unknown"},
        {0xFFFF, "Unknown"},
    };
    for (const auto& [domain, name] : rows) {
        EXPECT_EQ(Text(domain, 2, "x"), std::string("x (") + name + " message 2)");
    }
}

TEST(SimpleMessageLocalizer, NullTemplateIsUnknownErrorIntoWhichParametersStillGo) {
    EXPECT_EQ(Text(0, 0), "Unknown error. (Unknown message 0)");
    EXPECT_EQ(Text(300, 1, nullptr, kTwo), "Unknown error.[file.txt][b] (Server message 1)");
}

TEST(SimpleMessageLocalizer, NullParametersAreNone) {
    SimpleMessageLocalizer localizer;
    EXPECT_STREQ(localizer.LocalizeText(0, 300, 1, "%1", nullptr).c_str(), "%1 (Server message 1)");
}

TEST(SimpleMessageLocalizer, WantOfMemoryIsThrownAndNothingLeaks) {
    SimpleMessageLocalizer localizer;
    const std::size_t before = test::LiveBlocks();
    for (const auto domain : std::initializer_list<unsigned short>{10, 100, 101, 300}) {
        const std::size_t failures = test::ForEachFailingAllocation([&] {
            try {
                EXPECT_NE(localizer.LocalizeText(0, domain, 5, "A template %1 of some length", kTwo).c_str(),
                          nullptr);
            } catch (const std::bad_alloc&) {
            }
        });
        EXPECT_GE(failures, 2u);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

}  // namespace
