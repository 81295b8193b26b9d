#pragma once

// `std::hash` of the identifiers, for unordered containers.

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
struct std::hash<ZBase::GUID> {
    std::size_t operator()(const ZBase::GUID& guid) const noexcept { return std::hash<_GUID>()(guid); }
};

template <>
struct std::hash<_UDID> {
    std::size_t operator()(const _UDID& udid) const noexcept { return ZBase::detail::HashBytes(udid); }
};
