#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Keeps a line for the next crash: a dump holds the newest lines, up to 64 KiB of them, and `zbase crash
/// show` shows them. Each takes its octets, rounded up to eight, and 16 more. Of a longer text the first 4096
/// octets are kept, or a few less so that no UTF-8 character is cut. False for a null.
///
/// Costs about as much as copying the text. No heap, no lock: any thread may call at any time, in a signal
/// handler, before `InstallCrashHandler` and during a crash too. A line that was being written when the
/// process crashed is left out. A forked child has the lines of its parent.
ZBASE_API bool AddCrashNote(const char* text);

}  // namespace ZBase
