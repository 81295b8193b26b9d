#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace ZBase::detail {

/// The path that a UTF-8 text names. A narrow text alone would be taken for one of the system's own encoding
/// where that is another.
inline std::filesystem::path Utf8Path(std::string_view text) {
    return std::u8string(text.begin(), text.end());
}

}  // namespace ZBase::detail
