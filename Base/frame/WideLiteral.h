#pragma once

#include <Base/frame/Standard.h>

#include <cstddef>

namespace ZBase {
namespace detail {

/// The characters of a string literal, as a template argument.
template <class Ch, std::size_t N>
struct LiteralText {
    Ch units[N];
    consteval LiteralText(const Ch (&text)[N]) {
        for (std::size_t i = 0; i != N; ++i) units[i] = text[i];
    }
};

/// The 16-bit units of a literal, computed by the compiler. A narrow literal is read as UTF-8; a malformed
/// one does not compile.
template <LiteralText Text>
struct WideLiteralUnits {
    unsigned short units[sizeof(Text.units) / sizeof(Text.units[0])]{};

    consteval WideLiteralUnits() {
        constexpr std::size_t length = sizeof(Text.units) / sizeof(Text.units[0]) - 1;
        std::size_t used = 0;
        if constexpr (sizeof(Text.units[0]) > 1) {
            static_assert(sizeof(Text.units[0]) == 2, "write a UTF-16 literal as u\"...\"_w");
            for (std::size_t i = 0; i != length; ++i)
                units[used++] = static_cast<unsigned short>(Text.units[i]);
        } else {
            for (std::size_t i = 0; i != length;) {
                const unsigned int lead = static_cast<unsigned char>(Text.units[i++]);
                const int more = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
                if (lead >= 0x80 && (lead < 0xC2 || lead > 0xF4)) throw "not UTF-8";
                unsigned int value = more == 0 ? lead : lead & (0x3Fu >> more);
                for (int k = 0; k != more; ++k) {
                    const unsigned int next = i == length ? 0u : static_cast<unsigned char>(Text.units[i++]);
                    if ((next & 0xC0) != 0x80) throw "not UTF-8";
                    value = value << 6 | (next & 0x3F);
                }
                constexpr unsigned int smallest[] = {0, 0x80, 0x800, 0x10000};
                if (value < smallest[more] || value > 0x10FFFF || (value & 0xFFFFF800) == 0xD800) {
                    throw "not UTF-8";
                }
                if (value >= 0x10000) {
                    units[used++] = static_cast<unsigned short>(0xD800 | (value - 0x10000) >> 10);
                    units[used++] = static_cast<unsigned short>(0xDC00 | (value & 0x3FF));
                } else {
                    units[used++] = static_cast<unsigned short>(value);
                }
            }
        }
    }
};

// Each module has its own: the loader never unloads one whose names are shared by all.
template <LiteralText Text>
#if !defined(_WIN32)
[[gnu::visibility("hidden")]]
#endif
inline constexpr WideLiteralUnits<Text>
    kWideLiteral{};

}  // namespace detail

inline namespace Literals {

/// "text"_w is a static, terminated array of 16-bit units: `const unsigned short*`.
template <detail::LiteralText Text>
consteval const unsigned short* operator""_w() {
    return detail::kWideLiteral<Text>.units;
}

}  // namespace Literals
}  // namespace ZBase
