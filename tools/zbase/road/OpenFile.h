#pragma once

#include <cstddef>
#include <string>

/// A file that is open for reading until the end of its scope. A failure is thrown as a `Message`: the error
/// number, wrapped by the operation.
class OpenFile {
public:
    explicit OpenFile(const std::string& file);
    ~OpenFile();
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// Bytes in the file when it was opened.
    std::size_t Size() const { return mSize; }

    /// Reads up to `size` bytes from `offset` on; fewer only at the end of the file.
    std::size_t ReadAt(std::size_t offset, char* destination, std::size_t size) const;

private:
    [[noreturn]] void Throw(int id, const char* text) const;

    std::string mName;
    int mDescriptor;
    std::size_t mSize = 0;
};
