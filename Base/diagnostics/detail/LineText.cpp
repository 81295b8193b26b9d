#include <Base/diagnostics/detail/LineText.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/LoneSurrogates.h>

#include <cstdio>

namespace ZBase::detail {

std::string PointerText(std::uint64_t address) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(address));
    return text;
}

std::string PointerText(const void* address) {
    return PointerText(reinterpret_cast<std::uint64_t>(address));
}

std::string LineText(const unsigned short* text) {
    const unsigned short* end = text;
    while (end != nullptr && *end != 0 && *end < 0x80) ++end;
    if (end == nullptr || *end == 0) return std::string(text, end);  // ASCII, as nearly all are
    constexpr unsigned short kReplacement = 0xFFFD;
    return WideCharToUTF8(ReplaceLoneSurrogates(text, kReplacement).c_str(), true).c_str();
}

}  // namespace ZBase::detail
