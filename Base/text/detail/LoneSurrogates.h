#pragma once

#include <Base/frame/WideString.h>

namespace ZBase::detail {

/// A text up to its zero with `replacement` in the place of each lone surrogate, which conversions reject.
inline WideString ReplaceLoneSurrogates(const unsigned short* text, unsigned short replacement) {
    const auto isSurrogate = [](unsigned int unit, unsigned int first) { return unit - first < 0x400; };
    WideString good;
    for (; text != nullptr && *text != 0; ++text) {
        if (isSurrogate(*text, 0xD800) && isSurrogate(text[1], 0xDC00)) {
            good.append(text++, 2);
        } else {
            good += isSurrogate(*text, 0xD800) || isSurrogate(*text, 0xDC00) ? replacement : *text;
        }
    }
    return good;
}

}  // namespace ZBase::detail
