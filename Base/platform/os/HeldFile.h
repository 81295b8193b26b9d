#pragma once

#include <cstdint>
#include <string>

namespace ZBase::os {

/// A file or a directory that this process keeps others from holding, until the end of the object or of the
/// process. It stands in nobody's way who does not hold.
class HeldFile {
public:
    HeldFile() = default;
    ~HeldFile() { LetGo(); }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

    /// False if somebody else holds it, or if it is no regular file: links are not followed, and nothing that
    /// stands there is waited for.
    bool Hold(const std::string& path);

    /// The same for a directory.
    bool HoldDirectory(const std::string& path);

    /// Whether what is held belongs to the user of this process.
    bool IsOwn() const;

    void LetGo();

private:
    bool Take(const std::string& path, bool isDirectory);

    // Handles of the system's.
    std::intptr_t mFile = -1;
    [[maybe_unused]] std::intptr_t mName = 0;  // of a directory, where the system can lock none
};

}  // namespace ZBase::os
