#include <Base/messages/MessageDomains.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace ZBase;

const std::map<unsigned int, std::string> kNames = {
    {0, "Unknown"},
    {10, "Windows Standard C Library"},
    {11, "Solaris Standard C Library"},
    {12, "AIX Standard C Library"},
    {13, "Linux Standard C Library"},
    {14, "HP-UX Standard C Library"},
    {15, "APPLE Standard C Library"},
    {100, "Windows API"},
    {101, "Windows Standard Exception"},
    {200, "UNIX Dynamic Linking"},
    {210, "Solaris Signal"},
    {211, "AIX Signal"},
    {212, "Linux Signal"},
    {213, "HP-UX Signal"},
    {214, "APPLE Signal"},
    {300, "Server"},
};

std::string InOtherCase(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        } else if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return text;
}

TEST(MessageDomains, ConstantsHaveTheirValues) {
    EXPECT_EQ(MESSAGE_DOMAIN_UNKNOWN, 0);
    EXPECT_EQ(MESSAGE_DOMAIN_ERRNO, 10);
    EXPECT_EQ(MESSAGE_DOMAIN_WIN32_API, 100);
    EXPECT_EQ(MESSAGE_DOMAIN_WIN32_EXCEPTION, 101);
    EXPECT_EQ(MESSAGE_DOMAIN_SERVER, 300);
}

TEST(MessageDomains, EveryNumberHasItsNameAndAllOthersAreUnknown) {
    for (unsigned int number = 0; number <= 0xFFFF; ++number) {
        const auto row = kNames.find(number);
        EXPECT_EQ(ToString(static_cast<unsigned short>(number)),
                  row == kNames.end() ? "Unknown" : row->second);
    }
}

TEST(MessageDomains, EveryNameInAnyCaseGivesItsNumberExceptAppleSignal) {
    for (const auto& [number, name] : kNames) {
        const unsigned int expected = number == 214 ? 0 : number;
        EXPECT_EQ(ToMessageDomain(name.c_str()), expected) << name;
        EXPECT_EQ(ToMessageDomain(InOtherCase(name).c_str()), expected) << name;
    }
    EXPECT_EQ(ToMessageDomain("windows api"), 100);
}

TEST(MessageDomains, NameMustMatchWholeAndIsNotTrimmed) {
    for (const char* name : {"no such domain", "", " ", "Server ", " Server", "Serve", "Servers", "Windows",
                             "300", "Windows  API", "\tServer", "Server\n"}) {
        EXPECT_EQ(ToMessageDomain(name), 0) << '"' << name << '"';
    }
}

TEST(MessageDomains, CharactersBesideTheLettersHaveNoCase) {
    EXPECT_EQ(ToMessageDomain("HP\rUX Signal"), 0);  // "-" without the bit that tells "M" from "m"
    EXPECT_EQ(ToMessageDomain("AIX@Signal"), 0);
    EXPECT_EQ(ToMessageDomain("S\xC5rver"), 0);
    EXPECT_EQ(ToMessageDomain("A\xC9X Signal"), 0);
    EXPECT_EQ(ToMessageDomain("L\xC4\xB0nux Signal"), 0);  // a capital I with a dot
}

TEST(MessageDomains, NullNameIsUnknown) {
    EXPECT_EQ(ToMessageDomain(nullptr), 0);
}

}  // namespace
