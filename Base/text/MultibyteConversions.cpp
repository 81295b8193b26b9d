#include <Base/platform/os/text/MultibyteText.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace ZBase {

namespace {

constexpr char kReplacement = '?';

[[noreturn]] void ThrowNotAscii(const char* text, unsigned int value, int width, std::size_t offset) {
    detail::ThrowConversionFailure(
        (text + detail::HexDigits(value, width) + " at offset " + std::to_string(offset) + '.').c_str());
}

// The result of `convert(out, capacity)`, which returns the length of the whole text. Few encodings need more
// than the first capacity.
template <class Result, class Convert>
Result ConvertAll(std::size_t capacity, Convert convert) {
    for (;;) {
        detail::Unfinished<Result> result(capacity);
        const std::size_t length = convert(result.Get(), capacity);
        if (length <= capacity) return result.Finish(result.Get() + length);
        capacity = length;
    }
}

// Elements that are converted one by one where a kernel stopped.
constexpr std::size_t kFewElements = 32;

// Writes `length` elements of ASCII; `fail(element, offset)` throws for any other. Returns the end.
template <class In, class Out, class Fail>
Out* ConvertAscii(const In* source, std::size_t length, bool replace, Out* out,
                  std::size_t (*take)(const In*, std::size_t, Out*), Fail fail) {
    for (std::size_t i = 0; i != length;) {
        i += take(source + i, length - i, out + i);
        const std::size_t stop = i + std::min(kFewElements, length - i);
        for (; i != stop; ++i) {
            if (source[i] >= 0x80 && !replace) fail(source[i], i);
            out[i] = static_cast<Out>(source[i] < 0x80 ? source[i] : static_cast<In>(kReplacement));
        }
    }
    return out + length;
}

unsigned short* WidenAscii(const char* source, std::size_t length, bool replace, unsigned short* out) {
    return ConvertAscii(reinterpret_cast<const unsigned char*>(source), length, replace, out,
                        detail::Kernels().widenAscii, [](unsigned int octet, std::size_t offset) {
                            ThrowNotAscii("Invalid ASCII character 0x", octet, 2, offset);
                        });
}

char* NarrowAscii(const unsigned short* source, std::size_t length, bool replace, char* out) {
    return ConvertAscii(source, length, replace, out, detail::Kernels().narrowAscii,
                        [](unsigned int unit, std::size_t offset) {
                            ThrowNotAscii("Non-ASCII codepoint U+", unit, 4, offset);
                        });
}

// `text` with a terminator.
std::unique_ptr<unsigned short[]> Units(std::u16string_view text) {
    auto units = std::make_unique_for_overwrite<unsigned short[]>(text.size() + 1);
    *std::copy(text.begin(), text.end(), units.get()) = 0;
    return units;
}

// Calls `convert(piece)` for each terminated piece of `length` elements, and `zero()` between two of them.
template <class Ch, class Convert, class Zero>
void ForEachPiece(const Ch* text, std::size_t length, Convert convert, Zero zero) {
    const Ch* const end = text + length;
    for (;;) {
        const Ch* const stop = std::find(text, end, Ch{0});
        if (stop != text) convert(text);
        if (stop == end) return;
        zero();
        text = stop + 1;
    }
}

// Converts the valid UTF-8 in front by a kernel, if that is the locale's encoding, which is the same on every
// system.
template <class Take, class In, class Out>
detail::Progress TakeUtf8(Take take, const In* source, std::size_t length, Out* out) {
    return os::MultibyteIsUtf8() ? take(source, length, out) : detail::Progress{0, 0};
}

}  // namespace

ReturnWString ASCIIToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    detail::Unfinished<ReturnWString> result(length);
    return result.Finish(WidenAscii(source, length, replace, result.Get()));
}

ReturnString WideCharToASCII(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    detail::Unfinished<ReturnString> result(units);
    return result.Finish(NarrowAscii(source, units, replace, result.Get()));
}

ReturnWString MultiByteToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    return ConvertAll<ReturnWString>(length + 1, [=](unsigned short* out, std::size_t capacity) {
        const detail::Progress done = TakeUtf8(detail::Kernels().decodeUtf8,
                                               reinterpret_cast<const unsigned char*>(source), length, out);
        const auto rest = [&](auto convert, auto... replacement) {
            return convert(out + done.written, capacity - done.written, source + done.read,
                           length - done.read, replacement...);
        };
        std::size_t units = rest(os::MultibyteToWide);
        if (units == os::kBadText) {
            if (!replace) detail::ThrowConversionFailure("::mbstowcs() failed.");
            units = rest(os::MultibyteToWideReplacing, static_cast<unsigned short>(kReplacement));
        }
        return done.written + units;
    });
}

ReturnString WideCharToMultiByte(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = detail::CountUnits(source, 0);
    const std::size_t capacity = detail::CheckedProduct(length, os::LongestMultibyteCharacter());
    return ConvertAll<ReturnString>(capacity, [=](char* out, std::size_t room) {
        const detail::Progress done = TakeUtf8(detail::Kernels().encodeUtf8, source, length, out);
        const auto rest = [&](auto convert, auto... replacement) {
            return convert(out + done.written, room - done.written, source + done.read, length - done.read,
                           replacement...);
        };
        std::size_t octets = rest(os::WideToMultibyte);
        if (octets == os::kBadText) {
            if (!replace) detail::ThrowConversionFailure("::wcstombs() failed.");
            octets = rest(os::WideToMultibyteReplacing, kReplacement);
        }
        return done.written + octets;
    });
}

std::u16string ASCIIToUTF16(std::string_view text, bool replace) {
    const auto units = std::make_unique_for_overwrite<unsigned short[]>(text.size());
    return std::u16string(units.get(), WidenAscii(text.data(), text.size(), replace, units.get()));
}

std::string UTF16ToASCII(std::u16string_view text, bool replace) {
    std::string result(text.size(), '\0');
    NarrowAscii(Units(text).get(), text.size(), replace, result.data());
    return result;
}

std::u16string MultiByteToUTF16(std::string_view text, bool replace) {
    const std::string terminated(text);
    std::u16string result;
    ForEachPiece(
        terminated.c_str(), terminated.size(),
        [&](const char* piece) {
            const ReturnWString wide = MultiByteToWideChar(piece, replace);
            result.append(wide.c_str(), wide.c_str() + detail::CountUnits(wide.c_str(), 0));
        },
        [&] { result.push_back(0); });
    return result;
}

std::string UTF16ToMultiByte(std::u16string_view text, bool replace) {
    const auto units = Units(text);
    std::string result;
    ForEachPiece(
        units.get(), text.size(),
        [&](const unsigned short* piece) { result += WideCharToMultiByte(piece, replace).c_str(); },
        [&] { result.push_back('\0'); });
    return result;
}

}  // namespace ZBase
