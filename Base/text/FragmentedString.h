#pragma once

#include <Base/frame/Allocator.h>
#include <Base/frame/Api.h>

#include <cstdint>

namespace ZBase {

/// Wide text that is built by appending, in a chain of fragments: stored text never moves, and a new fragment
/// is added only when the last one is full. A text belongs to one thread at a time.
///
/// The operations return 0 for success and 1 for a null argument. An append without memory keeps what fitted
/// and returns 0x8007000E; or 0x80041FF2 when a buffer refused, the id of the failure when a contract did
/// (which may be 0: `GetLength` tells), and 0x8000FFFF for any other failure.
class ZBASE_API FragmentedString {
public:
    /// Appends `length` units.
    virtual int Append(const unsigned short* text, unsigned int length) = 0;

    /// Appends a unit; 1, and nothing appended, for 0.
    virtual int AppendChar(unsigned short character) = 0;

    /// Appends a terminated text.
    virtual int AppendString(const unsigned short* text) = 0;

    /// The length in units.
    virtual int GetLength(unsigned int* length) = 0;

    /// Copies the first `count` units, or all if there are fewer, without a terminator. A count of 0 needs no
    /// destination.
    virtual int CopyTo(unsigned int count, unsigned short* destination) = 0;

    /// The bytes of all fragments, their headers of 16 bytes included.
    virtual int GetTotalBytes(unsigned int* bytes) = 0;

    virtual int GetFragmentCount(unsigned int* count) = 0;

    /// The capacity in units that was given at creation; 0 if none was.
    virtual int GetInitialCapacity(unsigned int* capacity) = 0;

    /// Destroys the text.
    virtual void Delete() = 0;

protected:
    ~FragmentedString() = default;
};

/// A text that begins with `text`, which may be null, in the heap or in the buffer of `allocator`, which it
/// must not outlive. With a capacity the first fragment has space for exactly that many units; when a
/// fragment for the rest of `text` fails, the result holds what fitted. Null when an allocator returns null
/// for the object; an allocator that returns null for a fragment throws 0x8007000E as a `long`. Throw what
/// the allocation of the first fragment throws, and `std::bad_alloc` for one of 4 GiB or more.
ZBASE_API FragmentedString* CreateFragmentedString(const unsigned short* text, std::uint64_t capacity,
                                                   const Allocator<unsigned short>& allocator);
ZBASE_API FragmentedString* CreateFragmentedString(const unsigned short* text,
                                                   const Allocator<unsigned short>& allocator);

}  // namespace ZBase
