#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/detail/CrashKeysBlock.h>

#include <atomic>
#include <cstddef>
#include <string>

namespace ZBase::detail {

/// The crash keys where the path of a crash finds them: in pages of their own, away from the heap. A key that
/// is set is appended, and of several values the last one counts; when there is no more room the keys are
/// written anew, into other pages. A reader finds a whole block at any time, whoever writes.
///
/// One thread writes at a time. When there is no memory, both throw `std::bad_alloc`, and what
/// was there before stays.
class CrashKeyLog {
public:
    constexpr CrashKeyLog() = default;

    /// Replaces all keys.
    void Write(const CrashConfigTable& keys, bool isProduction);

    /// Adds a key that `keys` holds already.
    void Append(const std::string& name, const std::string& value, const CrashConfigTable& keys,
                bool isProduction);

    // Those who read. No heap, no lock; each `BeginReading` is ended.

    /// Null if nothing was ever written. What it gives stays until `EndReading`.
    CrashKeysBlock* BeginReading();
    void EndReading() { --mReaders; }

    /// The newest block, inside of a reading.
    const CrashKeysBlock* Present() const { return mpPresent; }

private:
    struct Pages {
        char* text = nullptr;  // owned
        std::size_t capacity = 0;
    };

    Pages NewPages(std::size_t size);
    bool IsRead();

    Pages mPages;    // of the present block
    Pages mRetired;  // of the one before, which may still be read
    std::atomic<CrashKeysBlock*> mpPresent = nullptr;
    std::atomic<unsigned int> mReaders = 0;
    unsigned int mProcess = 0;  // the readers of another are not those of its child
};

}  // namespace ZBase::detail
