#pragma once

#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnUString.h>
#include <Base/frame/ReturnWString.h>

#include <string>

namespace test {

/// Wide text as a string that compares and prints; the text "(null)" for null.
inline std::u16string Wide(const unsigned short* text) {
    if (text == nullptr) return u"(null)";
    std::u16string units;
    for (; *text != 0; ++text) units.push_back(static_cast<char16_t>(*text));
    return units;
}

using Units = std::basic_string<unsigned short>;

/// ASCII text as units.
inline Units ToUnits(const std::string& text) {
    return Units(text.begin(), text.end());
}

// The content of a result; not for a null string.
inline std::string Text(const ZBase::ReturnString& result) {
    return result.c_str();
}
inline Units Text(const ZBase::ReturnWString& result) {
    return result.c_str();
}
inline Units Text(const ZBase::ReturnUString& result) {
    return result.c_str();
}

}  // namespace test
