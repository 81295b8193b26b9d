#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cmath>

#include "tests/injection/Operation.h"
#include "tests/injection/Texts.h"

namespace test {

namespace {

using namespace ZBase::Literals;

// Longer than what a string keeps in itself.
constexpr char kText[] = "a text that is too long for a string object";
constexpr const unsigned short* kWide = "a text that is too long for a string object"_w;
constexpr std::u16string_view kUtf16 = u"a text that is too long for a string object";
constexpr char kBad[] = "a text that is no UTF-8 from here on: \xFF";
constexpr unsigned short kNoncharacter[] = {0xFFFF, 0};
constexpr unsigned short kLone[] = {'l', 'o', 'n', 'e', 0xD83D, 0};
constexpr ZBase::_GUID kGuid = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
constexpr unsigned char kSid[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};

/// The conversion fails for its input; without memory for the failure, for that.
template <class Call>
void Refuses(Call call) {
    try {
        call();
        ADD_FAILURE() << "took bad text";
    } catch (const ZBase::StringConversionException&) {
    }
}

void ConvertsUnicode(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::UTF8ToWideChar(kText, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::WideCharToUTF8(kWide, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::WideCharToUTF8UsingLength(kWide, 6, false).c_str(), "a text"));
        EXPECT_TRUE(Is(ZBase::UTF16ToWideChar(kWide, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::WideCharToUTF16(kWide, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::UTF16ToUTF8(kWide).c_str(), kText));
        EXPECT_TRUE(ZBase::ToUTF16(kText, false) == kUtf16);
        EXPECT_TRUE(ZBase::ToUTF8(kUtf16, false) == kText);
        ZBase::UTF8ToWideChar(kBad, true);
        EXPECT_TRUE(ZBase::ToUTF8(ZBase::ToUTF16(kBad, true), true).ends_with("\xEF\xBF\xBD"));
    });
}

void RefusesUnicode(Trial& trial) {
    trial([] { Refuses([] { ZBase::UTF8ToWideChar(kBad, false); }); });
    trial([] { Refuses([] { ZBase::WideCharToUTF8(kLone, true); }); });
    trial([] { Refuses([] { ZBase::WideCharToUTF8UsingLength(kLone, 5, true); }); });
    trial([] { Refuses([] { ZBase::UTF16ToUTF8(kLone); }); });
    trial([] { Refuses([] { ZBase::ToUTF16(kBad, false); }); });
    trial([] { Refuses([] { ZBase::ToUTF8(u"lone \xD83D", false); }); });
    trial([] { Refuses([] { ZBase::UTF8TotalBytes('\x80'); }); });
    trial([] { Refuses([] { ZBase::WideCharToUTF16(kNoncharacter, false); }); });
}

void ConvertsIntoPlaces(Trial& trial) {
    trial([] {
        unsigned short place[sizeof kText] = {};
        EXPECT_TRUE(ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(kText), place,
                                          sizeof kText - 1, false));
        EXPECT_TRUE(Is(place, kText));
        EXPECT_EQ(ZBase::WideCharToUTF16(kWide, place, 7, false), place);
        EXPECT_EQ(ZBase::UTF8TotalBytes('\xE4'), 3u);
        EXPECT_TRUE(ZBase::UTF8IsLeadingByte('a'));
        EXPECT_TRUE(ZBase::ScanUTF8(kText).isWhole);
        EXPECT_EQ(ZBase::UNICODE_BYTE_ORDER_MARK[0], 0xFEFF);
    });
}

void ConvertsMultibyte(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::ASCIIToWideChar(kText, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::WideCharToASCII(kWide, false).c_str(), kText));
        EXPECT_TRUE(ZBase::ASCIIToUTF16(kText, false) == kUtf16);
        EXPECT_TRUE(ZBase::UTF16ToASCII(kUtf16, false) == kText);
        EXPECT_TRUE(Is(ZBase::MultiByteToWideChar(kText, false).c_str(), kText));
        EXPECT_TRUE(Is(ZBase::WideCharToMultiByte(kWide, false).c_str(), kText));
        EXPECT_TRUE(ZBase::MultiByteToUTF16(kText, false) == kUtf16);
        EXPECT_TRUE(ZBase::UTF16ToMultiByte(kUtf16, false) == kText);
        ZBase::MultiByteToWideChar(kBad, true);
        ZBase::WideCharToMultiByte(kLone, true);
    });
}

void RefusesMultibyte(Trial& trial) {
    trial([] { Refuses([] { ZBase::ASCIIToWideChar(kBad, false); }); });
    trial([] { Refuses([] { ZBase::WideCharToASCII(kLone, false); }); });
    trial([] { Refuses([] { ZBase::ASCIIToUTF16(kBad, false); }); });
    trial([] { Refuses([] { ZBase::UTF16ToASCII(u"lone \xD83D", false); }); });
    trial([] { Refuses([] { ZBase::WideCharToMultiByte(kLone, false); }); });
    trial([] { Refuses([] { ZBase::UTF16ToMultiByte(u"lone \xD83D", false); }); });
}

void WritesNumbers(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::ToDecimalString(-5).c_str(), "-5"));
        EXPECT_TRUE(Is(ZBase::ToDecimalWString(-5).c_str(), "-5"));
        EXPECT_TRUE(Is(ZBase::ToDecimal64String(-5).c_str(), "-5"));
        EXPECT_TRUE(Is(ZBase::ToDecimal64WString(-5).c_str(), "-5"));
        EXPECT_TRUE(Is(ZBase::ToHexUpperString(-1).c_str(), "FFFFFFFF"));
        EXPECT_TRUE(Is(ZBase::ToHexUpperWString(-1).c_str(), "FFFFFFFF"));
        EXPECT_TRUE(Is(ZBase::ToHexLowerString(-1).c_str(), "ffffffff"));
        EXPECT_TRUE(Is(ZBase::ToHexLowerWString(-1).c_str(), "ffffffff"));
        EXPECT_TRUE(ZBase::ShortestText(-1.2345678901234567e-200) == "-1.2345678901234567e-200");
        ZBase::GetHumanReadableSize(1536);
    });
}

void ReadsNumbers(Trial& trial) {
    trial([] {
        EXPECT_EQ(ZBase::DecimalToInt("17"), 17);
        EXPECT_EQ(ZBase::DecimalToInt("17"_w), 17);
        EXPECT_EQ(ZBase::DecimalToInt64("17"), 17);
        EXPECT_EQ(ZBase::DecimalToInt64("17"_w), 17);
        EXPECT_EQ(ZBase::NearestDouble("0.1"), 0.1);
    });
}

void ReadsStrictNumbers(Trial& trial) {
    trial([] {
        EXPECT_EQ(ZBase::HexToUnsignedInt("0x1F", false), 31u);
        EXPECT_EQ(ZBase::HexToUnsignedInt("0x1F"_w, false), 31u);
        EXPECT_TRUE(std::abs(ZBase::LocaleNeutralStringToDouble("1.5"_w) - 1.5) < 1e-9);
    });
    trial([] { Refuses([] { ZBase::HexToUnsignedInt(kText, false); }); });
    trial([] { Refuses([] { ZBase::HexToUnsignedInt(kLone, false); }); });
    trial([] { Refuses([] { ZBase::LocaleNeutralStringToDouble(kWide); }); });
}

void WritesOctets(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::WideChar2String('A').c_str(), "0041"));
        EXPECT_TRUE(Is(ZBase::Binary2String("AB", 2).c_str(), "4142"));
        EXPECT_TRUE(Is(ZBase::Binary2OctString("A\n", 2).c_str(), "A\\012"));
        EXPECT_TRUE(ZBase::Char2Hex('A') == "41");
        EXPECT_TRUE(ZBase::UrlEncode("a b").size() == 5);
        EXPECT_TRUE(ZBase::UrlDecode("a%20b").size() == 3);
    });
    trial([] { Refuses([] { ZBase::UrlDecode("a text with a bad escape that is long: %2"); }); });
}

void WritesIdentifiers(Trial& trial) {
    trial([] {
        EXPECT_TRUE(Is(ZBase::Guid2String(kGuid).c_str(), "0011223366774455BBAA9988FFEEDDCC"));
        EXPECT_TRUE(Is(ZBase::Guid2MSString(kGuid).c_str(), "{00112233-4455-6677-8899-AABBCCDDEEFF}"));
        EXPECT_TRUE(Is(ZBase::Guid2MSUniString(kGuid).c_str(), "00112233-4455-6677-8899-AABBCCDDEEFF"));
        const ZBase::GUID guid(kGuid);
        EXPECT_TRUE(Is(guid.ToWString().c_str(), "0011223366774455BBAA9988FFEEDDCC"));
        EXPECT_TRUE(Is(guid.ToMicrosoftWString().c_str(), "{00112233-4455-6677-8899-AABBCCDDEEFF}"));
        EXPECT_EQ(ZBase::Udid2String(ZBase::UDID_NULL).GetLength(), 40u);
        EXPECT_TRUE(Is(ZBase::SidBinaryToWString(kSid, sizeof kSid).c_str(), "S-1-5-18"));
    });
}

void ReadsIdentifiers(Trial& trial) {
    trial([] {
        ZBase::_GUID guid;
        EXPECT_TRUE(ZBase::String2Guid(guid, "0011223366774455BBAA9988FFEEDDCC"_w));
        EXPECT_EQ(ZBase::CompareGUID(guid, kGuid), 0);
        EXPECT_TRUE(ZBase::MSString2Guid(guid, "{00112233-4455-6677-8899-AABBCCDDEEFF}"_w));
        EXPECT_TRUE(ZBase::GUID(guid) == kGuid);
        EXPECT_FALSE(ZBase::GUID(guid) != kGuid);
        EXPECT_FALSE(ZBase::GUID(guid) < kGuid);
        ZBase::_UDID udid;
        EXPECT_TRUE(ZBase::String2Udid(udid, "0011223344556677889900112233445566778899"_w));
        EXPECT_TRUE(ZBase::GUID("{00112233-4455-6677-8899-AABBCCDDEEFF}"_w) == kGuid);
    });
    trial([] {
        try {
            const ZBase::GUID guid("no identifier"_w);
            ADD_FAILURE();
        } catch (const ZBase::Message& failure) {
            EXPECT_EQ(failure.GetID(), -1);
        }
    });
}

void ReadsASid(Trial& trial) {
    static const ZBase::WideString text("S-1-5-18"_w);
    trial([] {
        unsigned char* sid = nullptr;
        std::uint64_t size = 0;
        EXPECT_TRUE(ZBase::SidWStringToBinary(text, sid, size));
        EXPECT_EQ(size, sizeof kSid);
        delete[] sid;
    });
}

void MakesIdentifiers(Trial& trial) {
    trial([] {
        ZBase::_GUID guid{};
        ZBase::CreateGUID(guid);
        EXPECT_FALSE(ZBase::GUID() == guid);
    });
}

void BuildsATextInPieces(Trial& trial) {
    ZBase::FragmentedString* text = nullptr;
    trial([&] { text = ZBase::CreateFragmentedString(kWide, 10, ZBase::Allocator<unsigned short>()); });
    unsigned int before = 0;
    if (text != nullptr) {
        text->GetLength(&before);
        int failed = 0;
        const bool done = trial([&] {
            for (int i = 0; i != 40 && failed == 0; ++i) failed = text->AppendString(kWide);
        });
        EXPECT_TRUE(done);
        EXPECT_TRUE(failed == 0 || (!trial.IsUntouched() && failed == static_cast<int>(0x8007000E)))
            << failed;
        unsigned int length = 0;
        EXPECT_EQ(text->GetLength(&length), 0);
        std::vector<unsigned short> units(length + 1);
        EXPECT_EQ(text->CopyTo(length, units.data()), 0);
        if (trial.IsUntouched()) {
            EXPECT_EQ(length, 41 * (sizeof kText - 1));
        }
        for (unsigned int i = before; i < length; ++i)
            EXPECT_EQ(units[i], kWide[(i - before) % (sizeof kText - 1)]);
        text->Delete();
    }
    ZBase::FragmentedString* other = nullptr;
    trial([&] { other = ZBase::CreateFragmentedString(kWide, ZBase::Allocator<unsigned short>()); });
    if (other != nullptr) other->Delete();
}

void ConvertsUnderABudget(Trial& trial) {
    static const ZBase::WideString large(9000, 'x');
    const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1'000'000);
    ZBase::SmartPtrI<ZBase::MemoryContract> contract(budget.Get());
    trial([&] {
        EXPECT_EQ(ZBase::WideCharToUTF8Governed(large.c_str(), false, contract).GetLength(), 9000u);
        EXPECT_EQ(ZBase::WideCharToUTF8UsingLengthGoverned(large.c_str(), 9000, contract, false).GetLength(),
                  9000u);
    });
    if (trial.IsUntouched()) {
        EXPECT_EQ(budget->GetSettled(), budget->GetGranted());
    }
    const ZBase::SmartPtrI<ZBase::MemoryBudget> none = ZBase::MemoryBudget::Create(1);
    contract = none.Get();
    trial([&] {
        try {
            ZBase::WideCharToUTF8Governed(large.c_str(), false, contract);
            ADD_FAILURE();
        } catch (const ZBase::ContractManagerAllocException&) {
        }
    });
    EXPECT_EQ(none->GetGranted(), 0u);
}

}  // namespace

std::vector<Operation> TextOperations() {
    return {
        {"converts unicode",
         {"ZBase::UTF8ToWideChar(char const*, bool)", "ZBase::WideCharToUTF8",
          "ZBase::WideCharToUTF8UsingLength", "ZBase::UTF16ToWideChar",
          "ZBase::WideCharToUTF16(unsigned short const*, bool)", "ZBase::UTF16ToUTF8", "ZBase::ToUTF16",
          "ZBase::ToUTF8"},
         kReturns | kBadAlloc,
         ConvertsUnicode},
        {"refuses bad unicode", {}, kReturns | kBadAlloc, RefusesUnicode},
        {"converts into a place",
         {"ZBase::UTF8ToWideChar(unsigned char const*, unsigned short*, unsigned long, bool)",
          "ZBase::WideCharToUTF16(unsigned short const*, unsigned short*, unsigned long, bool)",
          "ZBase::UTF8TotalBytes", "ZBase::UTF8IsLeadingByte", "ZBase::ScanUTF8",
          "ZBase::UNICODE_BYTE_ORDER_MARK"},
         kReturns,
         ConvertsIntoPlaces},
        {"converts multibyte text",
         {"ZBase::ASCIIToWideChar", "ZBase::WideCharToASCII", "ZBase::ASCIIToUTF16", "ZBase::UTF16ToASCII",
          "ZBase::MultiByteToWideChar", "ZBase::WideCharToMultiByte", "ZBase::MultiByteToUTF16",
          "ZBase::UTF16ToMultiByte"},
         kReturns | kBadAlloc,
         ConvertsMultibyte},
        {"refuses bad multibyte text", {}, kReturns | kBadAlloc, RefusesMultibyte},
        {"writes numbers",
         {"ZBase::ToDecimal*", "ZBase::ToHex*", "ZBase::ShortestText", "ZBase::GetHumanReadableSize"},
         kReturns | kBadAlloc,
         WritesNumbers},
        {"reads numbers",
         {"ZBase::DecimalToInt", "ZBase::DecimalToInt64", "ZBase::NearestDouble"},
         kReturns,
         ReadsNumbers},
        {"reads strict numbers",
         {"ZBase::HexToUnsignedInt", "ZBase::LocaleNeutralStringToDouble"},
         kReturns | kBadAlloc,
         ReadsStrictNumbers},
        {"writes octets",
         {"ZBase::WideChar2String", "ZBase::Binary2String", "ZBase::Binary2OctString", "ZBase::Char2Hex",
          "ZBase::UrlEncode", "ZBase::UrlDecode"},
         kReturns | kBadAlloc,
         WritesOctets},
        {"writes identifiers",
         {"ZBase::Guid2String", "ZBase::Guid2MSString", "ZBase::Guid2MSUniString", "ZBase::GUID::ToWString",
          "ZBase::GUID::ToMicrosoftWString", "ZBase::Udid2String", "ZBase::UDID_NULL",
          "ZBase::SidBinaryToWString"},
         kReturns | kBadAlloc,
         WritesIdentifiers},
        {"reads identifiers",
         {"ZBase::String2Guid", "ZBase::MSString2Guid", "ZBase::CompareGUID",
          "ZBase::GUID::GUID(_GUID const&)", "ZBase::GUID::GUID(unsigned short const*)",
          "ZBase::GUID::operator==", "ZBase::GUID::operator!=", "ZBase::GUID::operator<",
          "ZBase::String2Udid"},
         kReturns | kBadAlloc,
         ReadsIdentifiers},
        {"reads a security identifier", {"ZBase::SidWStringToBinary"}, kReturns | kBadAlloc, ReadsASid},
        {"makes identifiers",
         {"ZBase::CreateGUID", "ZBase::GUID::GUID()"},
         kReturns | kMessage,
         MakesIdentifiers},
        {"builds a text in pieces",
         {"ZBase::CreateFragmentedString"},
         kReturns | kBadAlloc,
         BuildsATextInPieces},
        {"converts under a budget",
         {"ZBase::WideCharToUTF8Governed", "ZBase::WideCharToUTF8UsingLengthGoverned"},
         kReturns | kBadAlloc,
         ConvertsUnderABudget},
    };
}

}  // namespace test
