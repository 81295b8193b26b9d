#pragma once

#include <cstdint>

namespace ZBase::detail {

/// The crash keys in every dump: this head, followed by names and values, each terminated by a zero. It
/// begins a memory of the dump; of several the one with the highest sequence is used.
struct CrashKeysBlock {
    char magic[16];
    std::uint64_t sequence;
    std::uint64_t size;        // octets after the head
    std::uint64_t hanging;     // 1 in a dump that was made on demand
    std::uint64_t production;  // 1 if the report goes to the server of `ServerProdURL`
};

/// The same for the last words of the crashed thread; crash keys of these names win.
inline constexpr char kLastWordsMagic[17] = "ZBase last words";

inline constexpr char kCrashKeysMagic[17] = "ZBase crash keys";

}  // namespace ZBase::detail
