#pragma once

#include <cstddef>
#include <cstdint>

namespace ZBase::os {

/// Reads words of a stack: `load` returns false for an unreadable one.
struct WordReader {
    bool (*load)(void* argument, std::uint64_t address, std::uint64_t& value);
    void* argument;

    bool operator()(std::uint64_t address, std::uint64_t& value) const {
        return load(argument, address, value);
    }
};

/// Reads a word that may be unmapped, through the system. The argument is not used.
bool LoadForeignWord(void*, std::uint64_t address, std::uint64_t& value);

/// Reads memory of this process that may be unmapped at any moment, through the system and a page at a time.
/// Pages are cached. No heap, no lock.
class ForeignMemory {
public:
    void Forget();

    /// The argument is a `ForeignMemory`. A word may span two pages.
    static bool Load(void* memory, std::uint64_t address, std::uint64_t& value);

private:
    static constexpr std::uint64_t kPage = 4096;
    static constexpr std::size_t kPages = 4;

    struct Page {
        std::uint64_t address = 1;  // no page starts there
        unsigned char octets[kPage];
    };

    const Page* PageAt(std::uint64_t address);

    Page mPages[kPages];
};

// Stacks are read raw, outside of what sanitizers allow.
#define ZBASE_READS_STACKS __attribute__((no_sanitize("address"), no_sanitize("thread")))

}  // namespace ZBase::os
