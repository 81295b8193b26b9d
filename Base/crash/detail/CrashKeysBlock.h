#pragma once

#include <cstdint>

namespace ZBase::detail {

/// The crash keys as every dump holds them: this head, and behind it names and values, each terminated by a
/// zero. It begins a memory of the dump; of several the one with the highest sequence counts.
struct CrashKeysBlock {
    char magic[16];
    std::uint64_t sequence;
    std::uint64_t size;        // octets behind the head
    std::uint64_t hanging;     // 1 in a dump that was made on demand
    std::uint64_t production;  // 1 if the report goes to the server of `ServerProdURL`
};

/// The same with what the crashed thread said of itself; crash keys of these names win.
inline constexpr char kLastWordsMagic[17] = "ZBase last words";

inline constexpr char kCrashKeysMagic[17] = "ZBase crash keys";

}  // namespace ZBase::detail
