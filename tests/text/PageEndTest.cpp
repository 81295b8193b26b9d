// Every function that takes text, with the text at the end of a page before an inaccessible one.

#include <Base/frame/WideString.h>
#include <Base/messages/Message.h>
#include <Base/text/FragmentedString.h>
#include <Base/text/GovernedConversions.h>
#include <Base/text/Guid.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/NumberText.h>
#include <Base/text/SidText.h>
#include <Base/text/Udid.h>
#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/GuardedArray.h"
#include "tests/support/WideText.h"

namespace {

using test::Units;

// A call that throws has read as much as one that does not.
template <class Operation>
void Try(Operation operation) {
    try {
        operation();
    } catch (const ZBase::Message&) {
    }
}

void ReadNarrow(const char* text) {
    for (const bool flag : {false, true}) {
        Try([&] { ZBase::UTF8ToWideChar(text, flag); });
        Try([&] { ZBase::ASCIIToWideChar(text, flag); });
        Try([&] { ZBase::MultiByteToWideChar(text, flag); });
        Try([&] { ZBase::HexToUnsignedInt(text, flag); });
    }
    ZBase::DecimalToInt(text);
    ZBase::DecimalToInt64(text);
}

void ReadWide(const unsigned short* text, std::size_t size) {
    unsigned short copy[64];
    for (const bool flag : {false, true}) {
        ZBase::SmartPtrI<ZBase::MemoryContract> none;
        Try([&] { ZBase::WideCharToUTF8(text, flag); });
        Try([&] { ZBase::WideCharToUTF8Governed(text, flag, none); });
        Try([&] { ZBase::WideCharToUTF8UsingLength(text, static_cast<unsigned int>(size + 5), flag); });
        Try([&] { ZBase::UTF16ToWideChar(text, flag); });
        Try([&] { ZBase::WideCharToUTF16(text, flag); });
        Try([&] { ZBase::WideCharToUTF16(text, copy, std::size(copy), flag); });
        Try([&] { ZBase::WideCharToASCII(text, flag); });
        Try([&] { ZBase::WideCharToMultiByte(text, flag); });
        Try([&] { ZBase::HexToUnsignedInt(text, flag); });
    }
    Try([&] { ZBase::UTF16ToUTF8(text); });
    Try([&] { ZBase::LocaleNeutralStringToDouble(text); });
    ZBase::DecimalToInt(text);
    ZBase::DecimalToInt64(text);
    ZBase::_GUID guid;
    ZBase::_UDID udid;
    ZBase::String2Guid(guid, text);
    ZBase::MSString2Guid(guid, text);
    Try([&] { ZBase::GUID{text}; });
    ZBase::String2Udid(udid, text);
    ZBase::FragmentedString* const string = ZBase::CreateFragmentedString(text, {});
    string->AppendString(text);
    string->Append(text, static_cast<unsigned int>(size));
    string->Delete();
}

// Texts after which a parser may want to read on: signs, prefixes, points, exponents, leads and surrogates.
const char* const kStarts[] = {
    "",      "0",     "0x",   "0X",       "-",     "+",        " ",
    "1.",    "1e",    "1e-",  ".",        "{",     "\xC3",     "\xE2\x82",
    "\xF0",  "\xF8",  "\xFC", "\xED\xA0", "-0x",   "\xF0\x9F", "\xFF",
    "00112", "{0011", "%",    "\x8E\xA2", "2.5e+", "ab\xC3",   "99999999999999999999"};

TEST(PageEnd, NarrowTextsAreReadToTheirTerminatorOnly) {
    for (const std::string start : kStarts) {
        for (std::size_t padding = 0; padding != 20; ++padding) {
            const test::GuardedArray<char> text(std::string(padding, ' ') + start + '\0');
            ReadNarrow(text.Get());
            const test::GuardedArray<char> digits(std::string(padding, '1') + start + '\0');
            ReadNarrow(digits.Get());
        }
    }
}

TEST(PageEnd, OctetsAreReadToTheirLengthOnly) {
    unsigned short units[64];
    for (const std::string start : kStarts) {
        for (std::size_t padding = 0; padding != 20; ++padding) {
            const std::string octets = std::string(padding, 'a') + start;
            const test::GuardedArray<char> text(octets);
            const auto* source = reinterpret_cast<const unsigned char*>(text.Get());
            for (const bool flag : {false, true}) {
                Try([&] { ZBase::UTF8ToWideChar(source, units, octets.size(), flag); });
            }
        }
    }
}

TEST(PageEnd, WideTextsAreReadToTheirTerminatorOnly) {
    std::vector<Units> starts{{0xD83D}, {0xDE00}, {0xD83D, 0xD83D}, {0xD83D, 'a'}, {0xFFFE}, {0x20AC}};
    for (const std::string start : kStarts) starts.push_back(test::ToUnits(start));
    for (const Units& start : starts) {
        for (const std::size_t padding :
             {0, 1, 2, 3, 7, 8, 9, 15, 16, 26, 30, 31, 32, 34, 35, 36, 37, 38, 39}) {
            for (const unsigned short unit : {' ', '1'}) {
                const Units text = Units(padding, unit) + start;
                const test::GuardedArray<unsigned short> guarded(text + static_cast<unsigned short>(0));
                ReadWide(guarded.Get(), text.size());
            }
        }
    }
}

TEST(PageEnd, UnitsAreReadToTheirLengthOnly) {
    for (const std::size_t length : {1, 7, 8, 9, 16, 17}) {
        const test::GuardedArray<unsigned short> text(Units(length, 'a'));
        const auto units = static_cast<unsigned int>(length);
        EXPECT_EQ(test::Text(ZBase::WideCharToUTF8UsingLength(text.Get(), units, false)),
                  std::string(length, 'a'));
        ZBase::FragmentedString* const string = ZBase::CreateFragmentedString(nullptr, 1, {});
        EXPECT_EQ(string->Append(text.Get(), units), 0);
        string->Delete();
    }
}

TEST(PageEnd, RecordOfASecurityIdentifierIsReadToItsCountOnly) {
    for (std::size_t count = 1; count <= 255; ++count) {
        std::string record(8 + 4 * count, '\x01');
        record[1] = static_cast<char>(count);
        const test::GuardedArray<char> guarded(record);
        const auto* sid = reinterpret_cast<const unsigned char*>(guarded.Get());
        EXPECT_NE(ZBase::SidBinaryToWString(sid, record.size()).c_str(), nullptr);
    }
}

// A destination of exactly the required size.
TEST(PageEnd, BufferFormsWriteIntoTheirCapacityOnly) {
    const Units wide(40, 0x20AC);
    for (std::size_t capacity = 1; capacity <= 41; ++capacity) {
        const test::GuardedArray<unsigned short> out(Units(capacity, 'x'));
        ZBase::WideCharToUTF16(wide.c_str(), out.Get(), capacity, false);
        EXPECT_EQ(test::Wide(out.Get()).size(), capacity - 1);
    }
    for (std::size_t length = 0; length <= 40; ++length) {
        const std::string octets(length, 'a');
        const test::GuardedArray<unsigned short> out(Units(length + 1, 'x'));
        const auto* source = reinterpret_cast<const unsigned char*>(octets.data());
        EXPECT_TRUE(ZBase::UTF8ToWideChar(source, out.Get(), length, false));
        EXPECT_EQ(test::Wide(out.Get()).size(), length);
    }
}

}  // namespace
