#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// A frame of a `CallStack`, which owns it.
class ZBASE_API CallStackLine {
public:
    /// The frame as "0x<address> 0x<frame address> Mod:[<module path>]", a tab,
    /// "Sym:[<symbol>]+0x<displacement>", a tab and "File:[<file>](<line>)"; valid until the next call on
    /// this line.
    virtual const unsigned short* GetText() = 0;

protected:
    ~CallStackLine() = default;
};

}  // namespace ZBase
