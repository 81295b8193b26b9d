// The input is read as text of an identifier by every parser, and as an identifier that is printed; the
// expectation takes texts apart by a pattern and prints by the C library.
//
// For: Base/text/Guid.cpp Base/text/Udid.cpp Base/text/SidText.cpp Base/text/detail/HexFields.h

#include <Base/messages/Message.h>
#include <Base/text/Guid.h>
#include <Base/text/IdentifierHash.h>
#include <Base/text/SidText.h>
#include <Base/text/Udid.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/Hexadecimal.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Units;
using Octets = std::vector<unsigned char>;

// Where the octets of a record are among the digits of a text: "0" to "f" is the number of the octet, twice;
// anything else stands for itself.
constexpr char kLibrary[] = "3322110077665544bbaa9988ffeeddcc";
constexpr char kPlain[] = "33221100-5544-7766-8899-aabbccddeeff";
constexpr char kBraces[] = "{33221100-5544-7766-8899-aabbccddeeff}";

bool SlowParse(const Units& text, const std::string& pattern, Octets& record) {
    record.assign(16, 0);
    if (text.size() != pattern.size()) return false;
    Octets read(16, 0);
    for (std::size_t i = 0; i != pattern.size(); ++i) {
        if (text[i] > 0x7E) return false;
        const char character = static_cast<char>(text[i]);
        if (std::isxdigit(static_cast<unsigned char>(pattern[i])) == 0) {
            if (character != pattern[i]) return false;
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(character)) == 0) return false;
        const auto at = static_cast<std::size_t>(std::stoi(std::string(1, pattern[i]), nullptr, 16));
        read[at] =
            static_cast<unsigned char>(read[at] * 16 + std::stoi(std::string(1, character), nullptr, 16));
    }
    record = read;
    return true;
}

std::string SlowPrint(const Octets& record, const std::string& pattern) {
    std::string text;
    for (std::size_t i = 0; i != pattern.size(); ++i) {
        if (std::isxdigit(static_cast<unsigned char>(pattern[i])) == 0) {
            text += pattern[i];
        } else {
            text += fuzz::Hexadecimal(record[std::stoul(std::string(1, pattern[i]), nullptr, 16)], 2);
            ++i;
        }
    }
    return text;
}

Units Wide(const std::string& text) {
    return Units(text.begin(), text.end());
}

Octets OctetsOf(const _GUID& guid) {
    Octets octets(sizeof guid);
    std::memcpy(octets.data(), &guid, sizeof guid);
    return octets;
}

void CheckParsers(const Units& text) {
    Octets expected;
    _GUID guid{1, 2, 3, {}};
    const bool isEither = SlowParse(text, text.size() == 36 ? kPlain : kLibrary, expected);
    fuzz::Check(ZBase::String2Guid(guid, text.c_str()) == isEither && OctetsOf(guid) == expected,
                "String2Guid");
    guid = {1, 2, 3, {}};
    const bool isBraces = SlowParse(text, kBraces, expected);
    fuzz::Check(ZBase::MSString2Guid(guid, text.c_str()) == isBraces && OctetsOf(guid) == expected,
                "MSString2Guid");
    const bool isOne = !text.empty() && text[0] == '{' ? isBraces : isEither;
    try {
        const ZBase::GUID made(text.c_str());
        fuzz::Check(isOne, "a GUID of a text that is none");
    } catch (const ZBase::Message& failure) {
        fuzz::Check(!isOne && failure.GetID() == -1, "no GUID of its text");
    }

    Octets udidExpected(20, 0);
    bool isUdid = text.size() == 40;
    for (std::size_t i = 0; isUdid && i != 40; ++i) isUdid = text[i] < 0x7F && std::isxdigit(text[i]) != 0;
    for (std::size_t i = 0; isUdid && i != 40; ++i)
        udidExpected[i / 2] = static_cast<unsigned char>(
            udidExpected[i / 2] * 16 + std::stoi(std::string(1, static_cast<char>(text[i])), nullptr, 16));
    _UDID udid{{7}};
    fuzz::Check(ZBase::String2Udid(udid, text.c_str()) == isUdid &&
                    std::equal(udidExpected.begin(), udidExpected.end(), udid.octets),
                "String2Udid");
}

void CheckPrinting(const Octets& bytes) {
    _GUID guid{};
    std::memcpy(&guid, bytes.data(), sizeof guid);
    const Octets record(bytes.begin(), bytes.begin() + 16);
    fuzz::Check(ZBase::Guid2String(guid).c_str() == Wide(SlowPrint(record, kLibrary)), "Guid2String");
    fuzz::Check(ZBase::Guid2MSString(guid).c_str() == Wide(SlowPrint(record, kBraces)), "Guid2MSString");
    fuzz::Check(ZBase::Guid2MSUniString(guid).c_str() == Wide(SlowPrint(record, kPlain)), "Guid2MSUniString");
    for (const char* form : {kLibrary, kPlain, kBraces}) CheckParsers(Wide(SlowPrint(record, form)));
    const ZBase::GUID made(guid);
    fuzz::Check(made.ToWString().c_str() == Wide(SlowPrint(record, kLibrary)), "ToWString");
    fuzz::Check(made.ToMicrosoftWString().c_str() == Wide(SlowPrint(record, kBraces)), "ToMicrosoftWString");

    _UDID udid{};
    std::memcpy(udid.octets, bytes.data(), sizeof udid.octets);
    std::string digits;
    for (const unsigned char octet : udid.octets) digits += fuzz::Hexadecimal(octet, 2);
    fuzz::Check(ZBase::Udid2String(udid).c_str() == Wide(digits), "Udid2String");
    CheckParsers(Wide(digits));
    fuzz::Check(std::hash<_UDID>()(udid) == std::hash<_UDID>()(udid), "hash of a UDID");
}

// The order of the plain text is the order of the numbers and of the octets.
void CheckOrder(const Octets& bytes) {
    _GUID one{};
    _GUID other{};
    std::memcpy(&one, bytes.data(), sizeof one);
    std::memcpy(&other, bytes.data() + 16, sizeof other);
    const std::string oneText = SlowPrint(OctetsOf(one), kPlain);
    const std::string otherText = SlowPrint(OctetsOf(other), kPlain);
    const int order = ZBase::CompareGUID(one, other);
    fuzz::Check((order < 0) == (oneText < otherText) && (order > 0) == (oneText > otherText), "CompareGUID");
    const ZBase::GUID made(one);
    fuzz::Check((made == other) == (oneText == otherText) && (made != other) == (oneText != otherText) &&
                    (made < other) == (oneText < otherText),
                "comparison of GUIDs");
    if (made == other) fuzz::Check(std::hash<ZBase::GUID>()(made) == std::hash<_GUID>()(other), "hash");
}

Octets SlowSid(const std::string& text) {
    std::vector<std::string> fields;
    for (std::size_t at = text.find('-'); at != std::string::npos;) {
        const std::size_t next = text.find('-', at + 1);
        fields.push_back(text.substr(at + 1, next == std::string::npos ? next : next - at - 1));
        at = next;
    }
    const auto number = [&](std::size_t field) -> unsigned long long {
        if (field >= fields.size()) return 0;
        const char* const start = fields[field].c_str();  // a zero ends what scans it
        return std::strtoull(start, nullptr, 10);
    };
    const std::size_t count = (fields.size() + 254) % 256;
    Octets sid{static_cast<unsigned char>(number(0)), static_cast<unsigned char>(count)};
    for (int shift = 40; shift >= 0; shift -= 8)
        sid.push_back(static_cast<unsigned char>(number(1) >> shift));
    for (std::size_t i = 0; i != count; ++i)
        for (int shift = 0; shift != 32; shift += 8)
            sid.push_back(static_cast<unsigned char>(number(2 + i) >> shift));
    return sid;
}

void CheckSids(const Units& units, const Octets& bytes) {
    unsigned char* sid = nullptr;
    std::uint64_t size = 9;
    const bool taken = ZBase::SidWStringToBinary(ZBase::WideString(units.begin(), units.end()), sid, size);
    const std::unique_ptr<unsigned char[]> owned(sid);
    fuzz::Check(taken == !units.empty() && (taken || (sid == nullptr && size == 0)), "SidWStringToBinary");
    if (taken) {
        std::string text;
        for (const unsigned short unit : units) text += unit < 0x80 ? static_cast<char>(unit) : 'x';
        const Octets expected = SlowSid(text);
        fuzz::Check(Octets(sid, sid + size) == expected, "record of a SID");
    }

    Octets record(bytes);
    record.resize(8 + 4 * std::size_t{record[1]});
    std::string text = "S-" + std::to_string(record[0]) + "-";
    unsigned long long authority = 0;
    for (std::size_t i = 2; i != 8; ++i) authority = authority * 256 + record[i];
    text += std::to_string(authority);
    for (std::size_t i = 8; i != record.size(); i += 4)
        text += "-" + std::to_string(record[i] + record[i + 1] * 256ull + record[i + 2] * 65536ull +
                                     record[i + 3] * 16777216ull);
    const ZBase::ReturnWString printed = ZBase::SidBinaryToWString(record.data(), record.size());
    if (record[1] == 0) {
        fuzz::Check(printed.c_str() == nullptr, "text of a SID without sub-authorities");
        return;
    }
    fuzz::Check(printed.c_str() == Wide(text), "SidBinaryToWString");
    fuzz::Check(ZBase::SidWStringToBinary(ZBase::WideString(printed.c_str()), sid, size), "its own text");
    const std::unique_ptr<unsigned char[]> again(sid);
    fuzz::Check(Octets(sid, sid + size) == record, "a SID came back another one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // As narrow text, and as units.
    Units narrow(data, data + size);
    Units wide(size / 2, 0);
    if (!wide.empty()) std::memcpy(wide.data(), data, wide.size() * 2);
    Octets bytes(data, data + size);
    bytes.resize(std::max<std::size_t>(bytes.size(), 32));
    for (const Units& units : {narrow, wide}) {
        CheckParsers(Units(units.c_str()));
        CheckSids(units, bytes);
    }
    CheckPrinting(bytes);
    CheckOrder(bytes);
    _GUID guid{};
    _UDID udid{};
    fuzz::Check(!ZBase::String2Guid(guid, nullptr) && !ZBase::MSString2Guid(guid, nullptr) &&
                    !ZBase::String2Udid(udid, nullptr) &&
                    ZBase::SidBinaryToWString(nullptr, 8).c_str() == nullptr,
                "null");
    const ZBase::GUID fresh;
    fuzz::Check(fresh != guid, "a new identifier is zero");
    return 0;
}
