#pragma once

namespace ZBase {

/// The steps on the path from the root of a message tree to one message. The counts have 16 bits: 65535 wraps
/// to 0.
struct CursorOffset {
    unsigned short lower_level_offset = 0;
    unsigned short same_level_offset = 0;
};

}  // namespace ZBase
