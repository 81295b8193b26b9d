#pragma once

#include <Base/diagnostics/AddrToLine.h>
#include <Base/frame/Api.h>

#include <atomic>
#include <cstdint>
#include <list>

namespace ZBase {

/// A raw stack: return addresses, innermost first, zeros after the last.
struct CallStackRec {
    std::uint32_t lockCategory;
    std::uint32_t count;  // captures that this record counts
    std::uint64_t addresses[32];
};

/// Collects raw stacks cheaply and looks them up only in the report. Its records stay until the end of the
/// process, also those folded into others: it is made for a diagnostic run.
class ZBASE_API CallStackLogger {
public:
    CallStackLogger();
    CallStackLogger(const CallStackLogger&) = delete;
    CallStackLogger& operator=(const CallStackLogger&) = delete;

    /// Records the stack of the calling thread without its first `skip` frames, the first being in this
    /// function. Any thread may call it. Throws `std::bad_alloc`.
    void AppendCallStack(unsigned int lockCategory, unsigned long skip);

    /// The same with category 0.
    void AppendCallStack(unsigned long skip);

    /// Folds equal stacks of one category into the first of them and counts them there. Each folded record
    /// counts as one, whatever its own count. Any thread may call it.
    void RemoveDuplicates();

    /// Writes all stacks, looked up, to a new file, and their number to the standard output. No effect if the
    /// file can't be opened. Call it after the captures have ended, as `begin` and `end`.
    void FprintfCallStack(const char* path);

    std::list<CallStackRec*>::const_iterator begin() const;
    std::list<CallStackRec*>::const_iterator end() const;

private:
    class SpinGuard;

    std::list<CallStackRec*> mRecords;
    std::atomic<std::int32_t> mLock{0};
    AddrToLine mResolver;
};

}  // namespace ZBase
