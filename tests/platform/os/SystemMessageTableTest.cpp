#include <Base/messages/SystemErrors.h>
#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/shared/SystemMessageTable.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/support/WideText.h"

namespace {

using namespace ZBase;

constexpr unsigned int kBeyondEveryCode = 70000;

std::vector<unsigned int> AllCodes() {
    std::vector<unsigned int> codes;
    for (unsigned int code = 0; code != kBeyondEveryCode; ++code) {
        if (os::FindSystemMessage(code) != nullptr) codes.push_back(code);
    }
    return codes;
}

TEST(SystemMessageTable, HoldsTheCodesThatAServerMeets) {
    EXPECT_GE(AllCodes().size(), 400u);
    for (const auto& [first, last] :
         {std::pair(10035u, 10071u), std::pair(11001u, 11031u), std::pair(1700u, 1730u),
          std::pair(1051u, 1079u), std::pair(229u, 234u)}) {
        for (unsigned int code = first; code <= last; ++code)
            EXPECT_NE(os::FindSystemMessage(code), nullptr) << code;
    }
}

TEST(SystemMessageTable, EveryTextIsOneLineOfPlainAsciiThatEndsWithAFullStop) {
    for (const unsigned int code : AllCodes()) {
        const std::string text = os::FindSystemMessage(code);
        EXPECT_FALSE(text.empty()) << code;
        EXPECT_LT(text.size(), 253u) << code;
        EXPECT_TRUE(std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; })) << code;
        EXPECT_EQ(text.back(), '.') << code;
        EXPECT_TRUE(text.front() >= 'A' && text.front() <= 'Z') << code;
        EXPECT_EQ(text.find("  "), std::string::npos) << code;
        EXPECT_EQ(text.find('%'), std::string::npos) << code;
    }
}

TEST(SystemMessageTable, NoTwoCodesShareAText) {
    std::set<std::string> texts;
    for (const unsigned int code : AllCodes())
        EXPECT_TRUE(texts.insert(os::FindSystemMessage(code)).second) << code;
}

TEST(SystemMessageTable, EveryTextIsFoundThroughThePublicFunctions) {
    for (const unsigned int code : AllCodes()) {
        const std::string text = os::FindSystemMessage(code);
        const std::u16string wide(text.begin(), text.end());
        EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(code, 0).c_str()), wide);
        EXPECT_EQ(test::Wide(GetWin32APIErrorDescriptionOrNULL(code, 0x409).c_str()), wide);
        EXPECT_TRUE(IsSystemError(code)) << code;
    }
}

TEST(SystemMessageTable, CodesBesideTheTableHaveNoText) {
    for (const unsigned int code : {35u, 10034u, 11032u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(os::FindSystemMessage(code), nullptr) << code;
    }
}

TEST(SystemMessageTable, TextsMeanWhatTheCodesMean) {
    const struct {
        unsigned int code;
        const char* word;
    } rows[] = {
        {0, "succeeded"},   {2, "file"},          {3, "path"},          {6, "handle"},
        {8, "memory"},      {32, "share"},        {87, "parameter"},    {109, "pipe"},
        {122, "buffer"},    {126, "module"},      {127, "procedure"},   {183, "exists"},
        {258, "time"},      {317, "message"},     {1056, "service"},    {1314, "privilege"},
        {1326, "password"}, {1337, "identifier"}, {1722, "RPC server"}, {1816, "quota"},
        {10038, "socket"},  {10048, "address"},   {10054, "reset"},     {10061, "refused"},
        {11001, "host"},
    };
    for (const auto& row : rows) {
        EXPECT_NE(std::string(os::FindSystemMessage(row.code)).find(row.word), std::string::npos) << row.code;
    }
    EXPECT_STREQ(os::FindSystemMessage(5), "Access is denied.");
}

template <class Ch>
class SystemMessageTableText : public testing::Test {};
using CharacterTypes = testing::Types<char, unsigned short>;
TYPED_TEST_SUITE(SystemMessageTableText, CharacterTypes);

// "Access is denied." and the line end
constexpr unsigned int kLength = 19;

TYPED_TEST(SystemMessageTableText, EndsWithCarriageReturnAndLineFeed) {
    TypeParam buffer[64];
    ASSERT_EQ(os::FormatSystemMessage(5, 0, buffer, 64), kLength);
    EXPECT_EQ(std::string(buffer, buffer + kLength), "Access is denied.\r\n");
    EXPECT_EQ(buffer[kLength], 0);
}

TYPED_TEST(SystemMessageTableText, NeedsRoomForTheTerminator) {
    TypeParam buffer[kLength + 2];
    std::ranges::fill(buffer, TypeParam('#'));
    EXPECT_EQ(os::FormatSystemMessage(5, 0, buffer, kLength + 1), kLength);
    EXPECT_EQ(buffer[kLength], 0);
    EXPECT_EQ(buffer[kLength + 1], '#');
    for (unsigned int capacity = 0; capacity <= kLength; ++capacity) {
        os::SetLastCode(0);
        EXPECT_EQ(os::FormatSystemMessage(5, 0, buffer, capacity), 0u);
        EXPECT_EQ(os::GetLastCode(), 122u);
    }
}

TYPED_TEST(SystemMessageTableText, NoBufferIsOneThatIsTooSmall) {
    for (const unsigned int capacity : {0u, 255u}) {
        os::SetLastCode(0);
        EXPECT_EQ(os::FormatSystemMessage(5, 0, static_cast<TypeParam*>(nullptr), capacity), 0u);
        EXPECT_EQ(os::GetLastCode(), 122u);
    }
}

TYPED_TEST(SystemMessageTableText, UnknownCodeAndUnknownLanguageHaveNoText) {
    TypeParam buffer[64];
    for (const auto& [code, language] : {std::pair(35u, 0), std::pair(35u, 0x409), std::pair(5u, 0x407),
                                         std::pair(5u, 1), std::pair(5u, 0x809), std::pair(5u, 0xFFFF)}) {
        os::SetLastCode(0);
        EXPECT_EQ(os::FormatSystemMessage(code, static_cast<unsigned short>(language), buffer, 64), 0u);
        EXPECT_EQ(os::GetLastCode(), 317u);
    }
}

TYPED_TEST(SystemMessageTableText, SuccessLeavesTheLastCodeAlone) {
    TypeParam buffer[64];
    os::SetLastCode(77);
    os::FormatSystemMessage(5, 0, buffer, 64);
    EXPECT_EQ(os::GetLastCode(), 77u);
}

}  // namespace
