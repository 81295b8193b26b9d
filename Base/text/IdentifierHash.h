#pragma once

// `std::hash` and `std::equal_to` of the identifiers, for unordered containers.

#include <Base/text/Guid.h>
#include <Base/text/Udid.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <string_view>

namespace ZBase::detail {

/// All bytes are used, since identifiers are not always random.
template <class Identifier>
std::size_t HashBytes(const Identifier& identifier) noexcept {
    char bytes[sizeof identifier];
    std::memcpy(bytes, &identifier, sizeof bytes);
    return std::hash<std::string_view>()(std::string_view(bytes, sizeof bytes));
}

}  // namespace ZBase::detail

template <>
struct std::hash<_GUID> {
    std::size_t operator()(const _GUID& guid) const noexcept { return ZBase::detail::HashBytes(guid); }
};

template <>
struct std::equal_to<_GUID> {
    bool operator()(const _GUID& one, const _GUID& other) const noexcept {
        return std::memcmp(&one, &other, sizeof one) == 0;
    }
};

template <>
struct std::hash<ZBase::GUID> {
    std::size_t operator()(const ZBase::GUID& guid) const noexcept { return std::hash<_GUID>()(guid); }
};

template <>
struct std::hash<_UDID> {
    std::size_t operator()(const _UDID& udid) const noexcept { return ZBase::detail::HashBytes(udid); }
};

template <>
struct std::equal_to<_UDID> {
    bool operator()(const _UDID& one, const _UDID& other) const noexcept {
        return std::memcmp(&one, &other, sizeof one) == 0;
    }
};
