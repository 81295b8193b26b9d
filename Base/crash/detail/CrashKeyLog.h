#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/detail/CrashKeysBlock.h>

#include <atomic>
#include <cstddef>
#include <string>

namespace ZBase::detail {

/// The crash keys for the crash path: in pages of their own, not on the heap. A new value is appended, and of
/// several values the last one is used; when the block is full the keys are written anew, into other pages. A
/// reader finds a complete block at any time, whoever writes.
///
/// One thread writes at a time. When there is no memory, both throw `std::bad_alloc`, and what
/// was there before stays.
class CrashKeyLog {
public:
    constexpr CrashKeyLog() = default;

    /// Replaces all keys.
    void Write(const CrashConfigTable& keys, bool isProduction);

    /// Adds a key that is in `keys` already.
    void Append(const std::string& name, const std::string& value, const CrashConfigTable& keys,
                bool isProduction);

    // For readers. No heap, no lock; each `BeginReading` needs an `EndReading`.

    /// Null if nothing was ever written. The result is valid until `EndReading`.
    CrashKeysBlock* BeginReading();
    void EndReading() { --mReaders; }

    /// Of the parent, in a forked child. One that is made without handlers keeps pages that nobody reads.
    void ForgetReaders() { mReaders = 0; }

    /// The newest block, within a reading.
    const CrashKeysBlock* Present() const { return mpPresent; }

private:
    struct Pages {
        char* text = nullptr;  // owned
        std::size_t capacity = 0;
    };

    Pages NewPages(std::size_t size);

    Pages mPages;    // of the present block
    Pages mRetired;  // of the one before, which may still be read
    std::atomic<CrashKeysBlock*> mpPresent = nullptr;
    std::atomic<unsigned int> mReaders = 0;
};

}  // namespace ZBase::detail
