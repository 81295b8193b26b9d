// Every allocation of every conversion fails in turn: it throws `std::bad_alloc` and leaks nothing, also if
// the conversion itself is about to fail.

#include <Base/frame/WideLiteral.h>
#include <Base/text/BinaryText.h>
#include <Base/text/FragmentedString.h>
#include <Base/text/GovernedConversions.h>
#include <Base/text/Guid.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/NumberText.h>
#include <Base/text/SidText.h>
#include <Base/text/Udid.h>
#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Failures.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase::Literals;

struct Case {
    const char* name;
    std::function<void()> convert;
};

// Long enough that no text fits into a string object.
const char kNarrow[] = "0123456789012345678901234567890123456789 \xC3\xA4";
const char kBadNarrow[] = "0123456789012345678901234567890123456789\xFF";
const unsigned short kWide[] = {'0', '1', '2', 0xE4, 0xD83D, 0xDE00, 0};
const unsigned short kBadWide[] = {'g', '1', 0xFFFE, 0};
const unsigned short kLoneSurrogate[] = {'g', '1', 0xD83D, 0};

const unsigned char kSid[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
const ZBase::WideString kSidText("S-1-5-18"_w);

void ReadSid() {
    unsigned char* sid = nullptr;
    std::uint64_t size = 0;
    ZBase::SidWStringToBinary(kSidText, sid, size);
    delete[] sid;
}

const Case kCases[] = {
    {"UTF8ToWideChar", [] { ZBase::UTF8ToWideChar(kNarrow, false); }},
    {"UTF8ToWideChar, bad octet", [] { ZBase::UTF8ToWideChar(kBadNarrow, false); }},
    {"UTF8ToWideChar, bad octet replaced", [] { ZBase::UTF8ToWideChar(kBadNarrow, true); }},
    {"UTF8TotalBytes, bad octet", [] { ZBase::UTF8TotalBytes('\x80'); }},
    {"WideCharToUTF8", [] { ZBase::WideCharToUTF8(kWide, false); }},
    {"WideCharToUTF8, bad unit", [] { ZBase::WideCharToUTF8(kBadWide, false); }},
    {"WideCharToUTF8, unpaired surrogate", [] { ZBase::WideCharToUTF8(kLoneSurrogate, true); }},
    {"WideCharToUTF8UsingLength", [] { ZBase::WideCharToUTF8UsingLength(kWide, 3, false); }},
    {"UTF16ToWideChar", [] { ZBase::UTF16ToWideChar(kWide, false); }},
    {"UTF16ToWideChar, bad unit", [] { ZBase::UTF16ToWideChar(kBadWide, false); }},
    {"WideCharToUTF16", [] { ZBase::WideCharToUTF16(kWide, false); }},
    {"WideCharToUTF16, bad unit", [] { ZBase::WideCharToUTF16(kBadWide, false); }},
    {"UTF16ToUTF8", [] { ZBase::UTF16ToUTF8(kWide); }},
    {"UTF16ToUTF8, unpaired surrogate", [] { ZBase::UTF16ToUTF8(kLoneSurrogate); }},
    {"ASCIIToWideChar", [] { ZBase::ASCIIToWideChar(kNarrow, true); }},
    {"ASCIIToWideChar, bad octet", [] { ZBase::ASCIIToWideChar(kNarrow, false); }},
    {"WideCharToASCII", [] { ZBase::WideCharToASCII(kWide, true); }},
    {"WideCharToASCII, bad unit", [] { ZBase::WideCharToASCII(kWide, false); }},
    {"MultiByteToWideChar", [] { ZBase::MultiByteToWideChar("abc", false); }},
    {"MultiByteToWideChar, replaced", [] { ZBase::MultiByteToWideChar(kBadNarrow, true); }},
    {"WideCharToMultiByte", [] { ZBase::WideCharToMultiByte(kWide, true); }},
    {"WideCharToMultiByte, unpaired surrogate", [] { ZBase::WideCharToMultiByte(kLoneSurrogate, false); }},
    {"ToDecimalString", [] { ZBase::ToDecimalString(-5); }},
    {"ToDecimalWString", [] { ZBase::ToDecimalWString(-5); }},
    {"ToDecimal64String", [] { ZBase::ToDecimal64String(-5); }},
    {"ToDecimal64WString", [] { ZBase::ToDecimal64WString(-5); }},
    {"ToHexUpperString", [] { ZBase::ToHexUpperString(-5); }},
    {"ToHexUpperWString", [] { ZBase::ToHexUpperWString(-5); }},
    {"ToHexLowerString", [] { ZBase::ToHexLowerString(-5); }},
    {"ToHexLowerWString", [] { ZBase::ToHexLowerWString(-5); }},
    {"HexToUnsignedInt, narrow", [] { ZBase::HexToUnsignedInt(kNarrow, false); }},
    {"HexToUnsignedInt, wide", [] { ZBase::HexToUnsignedInt(kBadWide, false); }},
    {"HexToUnsignedInt, unpaired surrogate", [] { ZBase::HexToUnsignedInt(kLoneSurrogate, false); }},
    {"LocaleNeutralStringToDouble", [] { ZBase::LocaleNeutralStringToDouble(kBadWide); }},
    {"WideChar2String", [] { ZBase::WideChar2String('A'); }},
    {"Binary2String", [] { ZBase::Binary2String(kNarrow, 40); }},
    {"Binary2OctString", [] { ZBase::Binary2OctString(kNarrow, 40); }},
    {"UrlEncode", [] { ZBase::UrlEncode(kNarrow); }},
    {"WideCharToUTF8Governed",
     [] {
         ZBase::SmartPtrI<ZBase::MemoryContract> none;
         ZBase::WideCharToUTF8Governed(kWide, true, none);
     }},
    {"Guid2String",
     [] {
         ZBase::Guid2String({1, 2, 3, {4}});
     }},
    {"Guid2MSString",
     [] {
         ZBase::Guid2MSString({1, 2, 3, {4}});
     }},
    {"Guid2MSUniString",
     [] {
         ZBase::Guid2MSUniString({1, 2, 3, {4}});
     }},
    {"Udid2String", [] { ZBase::Udid2String(ZBase::UDID_NULL); }},
    {"SidBinaryToWString", [] { ZBase::SidBinaryToWString(kSid, sizeof kSid); }},
    {"SidWStringToBinary", [] { ReadSid(); }},
    {"CreateFragmentedString", [] { ZBase::CreateFragmentedString(kWide, {})->Delete(); }},
    {"CreateFragmentedString with a capacity",
     [] { ZBase::CreateFragmentedString(nullptr, 4, {})->Delete(); }},
};

TEST(OutOfMemory, EveryConversionThrowsAndLeaksNothing) {
    for (const Case& row : kCases) {
        const std::size_t live = test::LiveBlocks();
        std::size_t completed = 0;
        const std::size_t failures = test::ForEachFailingAllocation([&] {
            try {
                row.convert();
                ++completed;
            } catch (const std::bad_alloc&) {
            } catch (const ZBase::StringConversionException&) {
                // This fails for a text that the message can omit.
            }
            EXPECT_EQ(test::LiveBlocks(), live) << row.name;
        });
        EXPECT_GT(failures, 0u) << row.name;
        EXPECT_LE(completed, 1u) << row.name << " went on without memory";
    }
}

TEST(OutOfMemory, TextThatGrowsKeepsWhatItHas) {
    const std::vector<unsigned short> half(400, 'x');
    const std::size_t live = test::LiveBlocks();
    test::ForEachFailingAllocation([&half] {
        ZBase::FragmentedString* const text = [] {
            try {
                return ZBase::CreateFragmentedString(nullptr, {});
            } catch (const std::bad_alloc&) {
                return static_cast<ZBase::FragmentedString*>(nullptr);
            }
        }();
        if (text == nullptr) return;
        unsigned int length = 0;
        const int result = text->Append(half.data(), 400);
        EXPECT_EQ(text->GetLength(&length), 0);
        // 248 units fit into the first fragment.
        EXPECT_EQ(length, result == 0 ? 400u : 248u);
        EXPECT_TRUE(result == 0 || result == static_cast<int>(0x8007000E));
        text->Delete();
    });
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST(OutOfMemory, BufferFormsAndParsersAllocateNothing) {
    const std::size_t before = test::AllocationCount();
    unsigned short units[sizeof kNarrow];
    ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(kNarrow), units, sizeof kNarrow - 1, false);
    ZBase::WideCharToUTF16(kWide, units, 3, false);
    ZBase::DecimalToInt("5");
    ZBase::HexToUnsignedInt("ff", false);
    EXPECT_EQ(ZBase::LocaleNeutralStringToDouble("1.5"_w), 1.5);
    EXPECT_EQ(test::AllocationCount(), before);
}

}  // namespace
