#pragma once

#include <Base/frame/Api.h>

#include <cstddef>

namespace ZBase {

/// Narrow text that a function of the library returns: one pointer to a block that the library allocates and
/// frees, so that it may pass between modules with heaps of their own. The pointer may be null. The encoding
/// depends on the function that returns it.
class ZBASE_API ReturnString {
public:
    /// A copy of `text`; null gives a null string. Throws `std::bad_alloc` when there is no memory for it.
    ReturnString(const char* text);

    /// A block of `length` characters and a terminator. With `length` 0 the text is empty and `text` is not
    /// read. A null `text` leaves the block all zero, to be written into through `c_str`. Otherwise at most
    /// `length` characters are copied, up to a terminator in `text`, and the rest is zero; the text is also
    /// cut at the position that the low 32 bits of `length` give as a signed number, if that is inside the
    /// block. Throws `std::bad_alloc`, for a block beyond the largest `size_t` as
    /// `std::bad_array_new_length`.
    ReturnString(std::size_t length, const char* text);

    /// Takes the block over: `other` is null afterwards, although it is `const`.
    ReturnString(const ReturnString& other);

    ReturnString& operator=(const ReturnString&) = delete;
    ~ReturnString();

    /// The text as it is held: null for a null string.
    const char* c_str() const { return mpText; }

    /// Characters before the terminator; 0 for a null string.
    std::size_t GetLength() const;

    /// Exchanges the held pointer with the caller's: to take a block out, or to put in one from another
    /// `ReturnString`.
    void Swap(char*& other);

private:
    mutable char* mpText;  // owned
};

}  // namespace ZBase
