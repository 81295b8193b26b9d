#pragma once

#include <Base/frame/detail/TextBlock.h>
#include <Base/platform/os/memory/Pages.h>

#include <cstddef>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace ZBase::detail {

/// The block of an unfinished result, to be written into.
template <class Result>
auto* Writable(const Result& result) {
    return const_cast<std::remove_const_t<std::remove_pointer_t<decltype(result.c_str())>>*>(result.c_str());
}

/// An unfinished result: a block for `length` units, of which only the written ones are touched.
template <class Result>
class Unfinished {
public:
    using Ch = std::remove_const_t<std::remove_pointer_t<decltype(std::declval<Result>().c_str())>>;

    explicit Unfinished(std::size_t length) : mLength(length), mpBlock(AllocateTextBlock<Ch>(length)) {}
    ~Unfinished() { FreeText(mpBlock); }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    Ch* Get() const { return mpBlock; }

    /// The text up to `end`, an address in the block. The rest is 0.
    Result Finish(Ch* end) {
        *end = 0;
        Ch* const behind = end + 1;
        const auto units = static_cast<std::size_t>(mpBlock + mLength + 1 - behind);
        if (units != 0) os::ClearMemory(behind, units * sizeof(Ch));
        Result result(nullptr);
        result.Swap(mpBlock);
        return result;
    }

private:
    std::size_t mLength;
    Ch* mpBlock;  // owned
};

/// `count` * `size`. Throws `std::bad_array_new_length` when that overflows.
inline std::size_t CheckedProduct(std::size_t count, std::size_t size) {
    if (size != 0 && count > std::numeric_limits<std::size_t>::max() / size) {
        throw std::bad_array_new_length();
    }
    return count * size;
}

}  // namespace ZBase::detail
