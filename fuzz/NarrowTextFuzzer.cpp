// The input is converted between wide text and ASCII, and between wide text and the encoding of the locale,
// as terminated text and as text with a length, and compared with one character at a time by the C library.
//
// For: Base/text/MultibyteConversions.cpp

#include <Base/text/MultibyteConversions.h>
#include <Base/text/detail/TextKernels.h>

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>

#include "fuzz/Check.h"
#include "fuzz/Hexadecimal.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Outcome;
using test::Units;

Outcome<Units> SlowFromAscii(const std::string& octets, bool replace) {
    Units text;
    for (std::size_t i = 0; i != octets.size(); ++i) {
        const auto octet = static_cast<unsigned char>(octets[i]);
        if (octet >= 0x80 && !replace)
            return {{},
                    "Invalid ASCII character 0x" + fuzz::Hexadecimal(octet, 2) + " at offset " +
                        std::to_string(i) + "."};
        text += octet < 0x80 ? octet : '?';
    }
    return {text, {}};
}

Outcome<std::string> SlowToAscii(const Units& units, bool replace) {
    std::string text;
    for (std::size_t i = 0; i != units.size(); ++i) {
        if (units[i] >= 0x80 && !replace)
            return {{},
                    "Non-ASCII codepoint U+" + fuzz::Hexadecimal(units[i], 4) + " at offset " +
                        std::to_string(i) + "."};
        text += units[i] < 0x80 ? static_cast<char>(units[i]) : '?';
    }
    return {text, {}};
}

Outcome<Units> SlowFromMultibyte(const std::string& octets, bool replace) {
    Units text;
    for (std::size_t i = 0; i != octets.size();) {
        wchar_t character = 0;
        std::mbstate_t state{};
        const std::size_t taken = std::mbrtowc(&character, octets.data() + i, octets.size() - i, &state);
        const bool isBad = taken > octets.size() || character > 0x10FFFF;  // UTF-16 lacks some
        if (isBad && !replace) return {{}, "::mbstowcs() failed."};
        text += isBad ? Units{'?'} : test::SlowUtf16(static_cast<unsigned long>(character));
        i += isBad || taken == 0 ? 1 : taken;
    }
    return {text, {}};
}

// The character of a proper pair, or of a unit that is no surrogate.
std::optional<unsigned long> CharacterAt(const Units& units, std::size_t i) {
    const auto isIn = [&](std::size_t at, unsigned int first) {
        return at < units.size() && units[at] >= first && units[at] < first + 0x400;
    };
    if (isIn(i, 0xD800) && isIn(i + 1, 0xDC00))
        return 0x10000 + (units[i] - 0xD800ul) * 0x400 + (units[i + 1] - 0xDC00ul);
    if (isIn(i, 0xD800) || isIn(i, 0xDC00)) return std::nullopt;
    return units[i];
}

Outcome<std::string> SlowToMultibyte(const Units& units, bool replace) {
    std::string text;
    for (std::size_t i = 0; i != units.size();) {
        const std::optional<unsigned long> character = CharacterAt(units, i);
        const std::size_t taken = character.value_or(0) > 0xFFFF ? 2 : 1;
        char octets[MB_LEN_MAX];
        std::mbstate_t state{};
        const std::size_t count =
            character ? std::wcrtomb(octets, static_cast<wchar_t>(*character), &state) : sizeof octets + 1;
        const bool isBad = count > sizeof octets;
        if (isBad && !replace) return {{}, "::wcstombs() failed."};
        text += isBad ? std::string(taken, '?') : std::string(octets, count);
        i += taken;
    }
    return {text, {}};
}

template <class Text, class Convert>
void CheckResult(const Outcome<Text>& expected, const char* what, Convert convert) {
    Text text;
    const std::string failure = fuzz::Failure([&] { text = convert(); });
    fuzz::Check(failure == expected.failure && text == expected.text, what);
}

void CheckTerminated(const std::string& octets, const Units& units, bool replace) {
    CheckResult(SlowFromAscii(octets, replace), "ASCIIToWideChar",
                [&] { return Units(ZBase::ASCIIToWideChar(octets.c_str(), replace).c_str()); });
    CheckResult(SlowToAscii(units, replace), "WideCharToASCII",
                [&] { return std::string(ZBase::WideCharToASCII(units.c_str(), replace).c_str()); });
    CheckResult(SlowFromMultibyte(octets, replace), "MultiByteToWideChar",
                [&] { return Units(ZBase::MultiByteToWideChar(octets.c_str(), replace).c_str()); });
    CheckResult(SlowToMultibyte(units, replace), "WideCharToMultiByte",
                [&] { return std::string(ZBase::WideCharToMultiByte(units.c_str(), replace).c_str()); });
}

// Zeros are ordinary characters, and the octets end where the memory does.
void CheckWithLength(const std::string& octets, const Units& units, bool replace) {
    const std::u16string wide(units.begin(), units.end());
    CheckResult(SlowFromAscii(octets, replace), "ASCIIToUTF16", [&] {
        const std::u16string text = ZBase::ASCIIToUTF16(octets, replace);
        return Units(text.begin(), text.end());
    });
    CheckResult(SlowToAscii(units, replace), "UTF16ToASCII",
                [&] { return ZBase::UTF16ToASCII(wide, replace); });
    CheckResult(SlowFromMultibyte(octets, replace), "MultiByteToUTF16", [&] {
        const std::u16string text = ZBase::MultiByteToUTF16(octets, replace);
        return Units(text.begin(), text.end());
    });
    CheckResult(SlowToMultibyte(units, replace), "UTF16ToMultiByte",
                [&] { return ZBase::UTF16ToMultiByte(wide, replace); });
}

void CheckAll(const std::string& octets, const Units& units) {
    const std::string terminated = octets.c_str();
    const Units terminatedUnits(units, 0, units.find(static_cast<unsigned short>(0)));
    for (const bool replace : {false, true}) {
        CheckTerminated(terminated, terminatedUnits, replace);
        CheckWithLength(octets, units, replace);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool sNulls = [] {
        return ZBase::ASCIIToWideChar(nullptr, true).c_str() == nullptr &&
               ZBase::WideCharToASCII(nullptr, true).c_str() == nullptr &&
               ZBase::MultiByteToWideChar(nullptr, true).c_str() == nullptr &&
               ZBase::WideCharToMultiByte(nullptr, true).c_str() == nullptr;
    }();
    fuzz::Check(sNulls, "null");
    const std::string octets(reinterpret_cast<const char*>(data), size);
    Units units(size / 2, 0);
    if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);

    // One kind of kernel each time, and now and then ASCII as the encoding of the locale.
    const ZBase::detail::KernelList runnable = ZBase::detail::RunnableKernels();
    ZBase::detail::UseKernels(runnable.kinds[size % runnable.count]);
    fuzz::Check(std::setlocale(LC_CTYPE, size % 8 == 7 ? "C" : "C.UTF-8") != nullptr,
                "there is no such locale");
    CheckAll(octets, units);
    return 0;
}
