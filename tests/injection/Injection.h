#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// Failures on purpose. This program stands in front of the heap (`malloc` and its kin, so `operator new` too)
// and of the calls of the system that the library and what it uses make. While failures are armed, one such
// call of this thread fails, by its number; in a child that shares the memory of this thread, too.

/// What fails, and how.
enum class EFailing {
    eHeap,           // an allocation gives null
    eSystem,         // a call of the system fails
    eInterrupted,    // a call that a signal may interrupt ends with EINTR
    eShort,          // a transfer of octets moves one
    eHeapForGood,    // an allocation and all that come after it, until the thread sleeps
    eSystemForGood,  // a call of the system and all that come after it
};

inline constexpr EFailing kAllFailing[] = {EFailing::eHeap,        EFailing::eSystem,
                                           EFailing::eInterrupted, EFailing::eShort,
                                           EFailing::eHeapForGood, EFailing::eSystemForGood};

const char* NameOf(EFailing failing);

/// A call that failed: its name, or null, and from where it was made.
struct Failure {
    const char* name = nullptr;
    void* frames[16] = {};
    int frameCount = 0;
};

/// From now on number `index`, counted from 0, of the armed calls of this kind fails. A `witness`, in memory
/// that another process sees too, is told of the first of them.
void PrepareFailure(EFailing failing, std::size_t index, Failure* witness = nullptr);

/// Whether it has come to that.
bool HasFailed();

/// Whether it may still come to that, here or in a process that this one starts.
bool MayFail();

/// Which call it was, and from where, by modules and offsets for `addr2line`.
std::string DescribeFailure();
std::string Describe(const Failure& failure);

/// Counts and lets fail while it lives.
class Armed {
public:
    Armed();
    ~Armed();
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
};

/// What a process holds.
struct Holdings {
    long blocks;       // of the heap
    long mappings;     // made by `mmap` through this program
    long descriptors;  // below 256
    bool IsMoreThan(const Holdings& other) const {
        return blocks > other.blocks || mappings > other.mappings || descriptors > other.descriptors;
    }
};

Holdings PresentHoldings();

/// The names of all calls that are stood in front of, sorted.
const std::vector<std::string_view>& InterposedNames();

}  // namespace test
