#pragma once

#include <cstddef>
#include <string>

namespace test {

/// Memory of exactly `size` bytes followed by an inaccessible page, with another one before all its pages.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t size);
    ~GuardedMemory();
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    void* Get() const { return mpData; }

    /// The first byte after the page before; `size` bytes from here are accessible too.
    void* GetFirst() const { return mpFirst; }

private:
    void* mpPages;
    std::size_t mMappedSize;
    void* mpFirst;
    void* mpData;
};

/// A copy of a text without its terminator, followed by an inaccessible page.
template <class Ch>
class GuardedArray {
public:
    explicit GuardedArray(const std::basic_string<Ch>& text) : mMemory(text.size() * sizeof(Ch)) {
        text.copy(Get(), text.size());
    }
    Ch* Get() const { return static_cast<Ch*>(mMemory.Get()); }

private:
    GuardedMemory mMemory;
};

}  // namespace test
