#pragma once

#include <cstdint>
#include <string>

namespace ZBase::os {

/// An advisory lock on a file or a directory, until the end of the object or of the process. It affects only
/// processes that lock too.
class HeldFile {
public:
    HeldFile() = default;
    ~HeldFile() { LetGo(); }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

    /// False if another process holds the lock, with `EWOULDBLOCK` in `errno`, if it can't be opened, with
    /// the reason there, or if it is not a regular file: links are not followed, and opening does not wait.
    bool Hold(const std::string& path);

    /// The same for a directory.
    bool HoldDirectory(const std::string& path);

    /// Whether the locked file belongs to the user of this process.
    bool IsOwn() const;

    void LetGo();

private:
    bool Take(const std::string& path, bool isDirectory);

    // Handles of the system's.
    std::intptr_t mFile = -1;
    [[maybe_unused]] std::intptr_t mName = 0;  // of a directory, where the system can lock none
};

}  // namespace ZBase::os
