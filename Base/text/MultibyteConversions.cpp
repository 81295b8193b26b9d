#include <Base/platform/os/MultibyteText.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace ZBase {

namespace {

constexpr char kReplacement = '?';

[[noreturn]] void ThrowNotAscii(const char* text, unsigned int value, int width, std::size_t offset) {
    detail::ThrowConversionFailure(
        (text + detail::HexDigits(value, width) + " at offset " + std::to_string(offset) + '.').c_str());
}

// The result of `convert(out, capacity)`, which gives the length of the whole text. Few encodings need more
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

// Elements that are gone through one by one where a kernel stopped.
constexpr std::size_t kFewElements = 32;

// Writes `length` elements of ASCII; `fail(element, offset)` throws for any other. Gives the end.
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

// What ordinary text in front there is, where the locale has it in UTF-8; it is the same in every system's.
template <class Take, class In, class Out>
detail::Progress TakeUtf8(Take take, const In* source, std::size_t length, Out* out) {
    return os::MultibyteIsUtf8() ? take(source, length, out) : detail::Progress{0, 0};
}

}  // namespace

ReturnWString ASCIIToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    detail::Unfinished<ReturnWString> result(length);
    return result.Finish(ConvertAscii(reinterpret_cast<const unsigned char*>(source), length, replace,
                                      result.Get(), detail::Kernels().widenAscii,
                                      [](unsigned int octet, std::size_t offset) {
                                          ThrowNotAscii("Invalid ASCII character 0x", octet, 2, offset);
                                      }));
}

ReturnString WideCharToASCII(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    detail::Unfinished<ReturnString> result(units);
    return result.Finish(ConvertAscii(source, units, replace, result.Get(), detail::Kernels().narrowAscii,
                                      [](unsigned int unit, std::size_t offset) {
                                          ThrowNotAscii("Non-ASCII codepoint U+", unit, 4, offset);
                                      }));
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

}  // namespace ZBase
