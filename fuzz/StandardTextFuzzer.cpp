// The input is converted as text that has a length, copied between wide text and UTF-16, and encoded under a
// budget, and compared with the slow model of the tests.
//
// For: Base/text/UnicodeText.cpp Base/text/UnicodeConversions.cpp Base/text/GovernedConversions.cpp

#include <Base/frame/SmartPtrI.h>
#include <Base/memory/MemoryBudget.h>
#include <Base/text/GovernedConversions.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/UnicodeText.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/Hexadecimal.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Outcome;
using test::Units;

std::u16string Standard(const Units& units) {
    return std::u16string(units.begin(), units.end());
}

void CheckScan(const std::string& octets) {
    const ZBase::UTF8Scan scan = ZBase::ScanUTF8(octets);
    const Outcome<Units> strict = test::SlowUtf8ToWide(octets, false);
    fuzz::Check(scan.isWhole == strict.failure.empty(), "whether the text is whole");
    fuzz::Check(scan.octets <= octets.size() && (!scan.isWhole || scan.octets == octets.size()),
                "where the scan ended");
    const Outcome<Units> before = test::SlowUtf8ToWide(octets.substr(0, scan.octets), false);
    fuzz::Check(before.failure.empty() && before.text.size() == scan.units, "units before the flaw");
    const auto pairs = std::count_if(before.text.begin(), before.text.end(),
                                     [](unsigned short unit) { return unit >= 0xDC00 && unit < 0xE000; });
    fuzz::Check(scan.characters == scan.units - static_cast<std::size_t>(pairs), "characters of the scan");
}

void CheckDecoding(const std::string& octets, bool replace) {
    const Outcome<Units> expected = test::SlowUtf8ToWide(octets, replace);
    std::u16string text;
    const std::string failure = fuzz::Failure([&] { text = ZBase::ToUTF16(octets, replace); });
    fuzz::Check(failure == expected.failure && text == Standard(expected.text), "ToUTF16");

    const std::string terminated = octets.c_str();
    const Outcome<Units> short_ = test::SlowUtf8ToWide(terminated, replace);
    Units wide;
    const std::string second =
        fuzz::Failure([&] { wide = ZBase::UTF8ToWideChar(terminated.c_str(), replace).c_str(); });
    fuzz::Check(second == short_.failure && wide == short_.text, "UTF8ToWideChar");
}

bool IsIn(unsigned int unit, unsigned int first, unsigned int last) {
    return first <= unit && unit <= last;
}

void CheckEncoding(const Units& units, bool replace) {
    Outcome<std::string> expected;
    for (std::size_t i = 0; i != units.size() && expected.failure.empty(); ++i) {
        unsigned long value = units[i];
        if (IsIn(units[i], 0xD800, 0xDBFF) && i + 1 != units.size() && IsIn(units[i + 1], 0xDC00, 0xDFFF)) {
            value = 0x10000 + (units[i] - 0xD800ul) * 0x400 + (units[i + 1] - 0xDC00ul);
            ++i;
        } else if (IsIn(units[i], 0xD800, 0xDFFF) || IsIn(units[i], 0xFFFE, 0xFFFF)) {
            if (!replace)
                expected.failure =
                    "ZBase::ToUTF8: Invalid UNICODE value U+" + fuzz::Hexadecimal(value, 4) + ".";
            value = 0xFFFD;
        }
        expected.text += test::SlowUtf8(value);
    }
    if (!expected.failure.empty()) expected.text.clear();
    std::string text;
    const std::string failure = fuzz::Failure([&] { text = ZBase::ToUTF8(Standard(units), replace); });
    fuzz::Check(failure == expected.failure && text == expected.text, "ToUTF8");
}

// The copies of a terminated text, with the failure that a unit from U+FFFE up is told by.
void CheckCopies(const Units& units, bool replace) {
    Units expected = units;
    const auto bad =
        std::find_if(units.begin(), units.end(), [](unsigned short unit) { return unit >= 0xFFFE; });
    std::replace_if(
        expected.begin(), expected.end(), [](unsigned short unit) { return unit >= 0xFFFE; },
        static_cast<unsigned short>(0xFFFD));
    const bool fails = !replace && bad != units.end();
    const auto check = [&](const char* function, auto copy) {
        Units text;
        const std::string failure = fuzz::Failure([&] { text = copy().c_str(); });
        const std::string told = std::string("ZBase::") + function + ": Invalid UNICODE value U+";
        fuzz::Check(
            fails ? failure == told + fuzz::Hexadecimal(*bad, 4) + "." : failure.empty() && text == expected,
            function);
    };
    check("UnicodeValueToWideChar", [&] { return ZBase::UTF16ToWideChar(units.c_str(), replace); });
    check("WideCharToUnicodeValue", [&] { return ZBase::WideCharToUTF16(units.c_str(), replace); });
    for (const std::size_t capacity : {std::size_t{0}, units.size() / 2, units.size(), units.size() + 1}) {
        const std::size_t length = std::min(units.size(), capacity == 0 ? 0 : capacity - 1);
        const bool failsHere = !replace && static_cast<std::size_t>(bad - units.begin()) < length;
        std::vector<unsigned short> out(std::max<std::size_t>(capacity, 1), 0xAAAA);
        const std::string failure = fuzz::Failure([&] {
            fuzz::Check(ZBase::WideCharToUTF16(units.c_str(), out.data(), capacity, replace) == out.data(),
                        "result of WideCharToUTF16");
        });
        fuzz::Check(failsHere == !failure.empty(), "failure of WideCharToUTF16");
        if (failsHere) continue;
        fuzz::Check(Units(out.data(), length) == expected.substr(0, length) && out[length] == 0,
                    "text of WideCharToUTF16");
    }
}

// Surrogates that are no pair are refused, whatever they are; an encoding of a length takes no more.
void CheckStrict(const Units& units) {
    const Outcome<std::string> expected = test::SlowUtf16ToUtf8(units);
    std::string text;
    const std::string failure = fuzz::Failure([&] { text = ZBase::UTF16ToUTF8(units.c_str()).c_str(); });
    fuzz::Check(failure == expected.failure && text == expected.text, "UTF16ToUTF8");
}

void CheckOctet(char octet) {
    fuzz::Check(ZBase::UTF8IsLeadingByte(octet), "UTF8IsLeadingByte");
    const auto value = static_cast<unsigned char>(octet);
    unsigned int ones = 0;
    while (ones != 8 && (value << ones & 0x80) != 0) ++ones;
    unsigned int octets = 0;
    const std::string failure = fuzz::Failure([&] { octets = ZBase::UTF8TotalBytes(octet); });
    if (ones == 1 || ones > 6) {
        fuzz::Check(failure == "Invalid octet 0xFFFFFF" + fuzz::Hexadecimal(value, 2) + ".",
                    "no leading octet");
    } else {
        fuzz::Check(failure.empty() && octets == std::max(ones, 1u), "UTF8TotalBytes");
    }
}

// The text of the units, repeated to some tens of thousands where that is asked for.
void CheckGoverned(const Units& units, bool replace, bool isLong, std::size_t limit) {
    Units text = units;
    while (isLong && !text.empty() && text.size() < 8000) text += text;
    const std::size_t asked = 8 * text.size() + 2;
    const bool isCharged = asked >= 65536;
    const Outcome<std::string> expected = test::SlowWideToUtf8(text, replace);
    const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(limit);
    ZBase::SmartPtrI<ZBase::MemoryContract> contract(budget.Get());
    const auto check = [&](auto convert) {
        const std::size_t before = budget->GetGranted();
        const bool isRefused = isCharged && asked > limit - before;
        std::string octets;
        try {
            const std::string failure = fuzz::Failure([&] { octets = convert().c_str(); });
            fuzz::Check(!isRefused && failure == expected.failure, "failure of a governed conversion");
            fuzz::Check(!failure.empty() || octets == expected.text, "text of a governed conversion");
        } catch (const ZBase::ContractManagerAllocException& refusal) {
            fuzz::Check(isRefused && refusal.GetID() == 1816, "a refusal");
        }
        const std::size_t charged = isCharged && !isRefused ? asked : 0;
        fuzz::Check(budget->GetGranted() == before + charged && budget->GetSettled() == before + charged,
                    "what was charged");
    };
    check([&] { return ZBase::WideCharToUTF8Governed(text.c_str(), replace, contract); });
    check([&] {
        return ZBase::WideCharToUTF8UsingLengthGoverned(text.c_str(), static_cast<unsigned int>(text.size()),
                                                        contract, replace);
    });
    ZBase::SmartPtrI<ZBase::MemoryContract> none;
    std::string octets;
    const std::string failure =
        fuzz::Failure([&] { octets = ZBase::WideCharToUTF8Governed(text.c_str(), replace, none).c_str(); });
    fuzz::Check(failure == expected.failure && (!failure.empty() || octets == expected.text),
                "without a budget");
}

void CheckNulls() {
    ZBase::SmartPtrI<ZBase::MemoryContract> none;
    unsigned short unit = 7;
    fuzz::Check(ZBase::UTF8ToWideChar(nullptr, false).c_str() == nullptr &&
                    ZBase::UTF8ToWideChar(nullptr, &unit, 3, false) &&
                    !ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(""), nullptr, 0, false) &&
                    ZBase::UTF16ToWideChar(nullptr, false).c_str() == nullptr &&
                    ZBase::WideCharToUTF16(nullptr, false).c_str() == nullptr &&
                    ZBase::WideCharToUTF16(nullptr, &unit, 1, false) == nullptr && unit == 7 &&
                    ZBase::UTF16ToUTF8(nullptr).c_str() == nullptr &&
                    ZBase::WideCharToUTF8(nullptr, false).c_str() == nullptr &&
                    ZBase::WideCharToUTF8Governed(nullptr, false, none).c_str() == nullptr,
                "null");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string octets(reinterpret_cast<const char*>(data), size);
    Units units(size / 2, 0);
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);
    const Units terminated(units.c_str());

    CheckNulls();
    CheckScan(octets);
    if (size != 0) CheckOctet(octets[0]);
    const bool isLong = size != 0 && size < 64 && data[0] == '0';
    for (const bool replace : {false, true}) {
        CheckDecoding(octets, replace);
        CheckEncoding(units, replace);
        CheckStrict(terminated);
        CheckCopies(terminated, replace);
        CheckGoverned(terminated, replace, isLong, size % 2 == 0 ? 100000 : 40000);
    }
    return 0;
}
