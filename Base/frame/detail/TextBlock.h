#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace ZBase::detail {

// The blocks of the result strings: terminated arrays of `Ch` from the global heap.

template <class Ch>
std::size_t TextLength(const Ch* text) {
    std::size_t length = 0;
    while (text[length] != 0) ++length;
    return length;
}

template <class Ch>
Ch* AllocateTextBlock(std::size_t length) {
    if (length >= std::numeric_limits<std::size_t>::max() / sizeof(Ch)) throw std::bad_array_new_length();
    return static_cast<Ch*>(::operator new((length + 1) * sizeof(Ch)));
}

template <class Ch>
Ch* CopyText(const Ch* text) {
    if (text == nullptr) return nullptr;
    const std::size_t length = TextLength(text);
    Ch* block = AllocateTextBlock<Ch>(length);
    for (std::size_t i = 0; i <= length; ++i) block[i] = text[i];
    return block;
}

/// The position of the last terminator of a block of `length` units: the low 32 bits of the length as a
/// signed number, so a text of 4 GiB and more is cut; kept for callers of that cut. A negative position is
/// outside of the block and cuts nothing.
inline std::size_t CutPosition(std::size_t length) {
    const auto position = static_cast<std::int32_t>(static_cast<std::uint32_t>(length));
    return position < 0 ? length : static_cast<std::size_t>(position);
}

template <class Ch>
Ch* MakeText(std::size_t length, const Ch* text) {
    Ch* block = AllocateTextBlock<Ch>(length);
    std::size_t used = 0;
    if (length != 0 && text != nullptr) {
        for (; used != length && text[used] != 0; ++used) block[used] = text[used];
        used = std::min(used, CutPosition(length));
    }
    std::memset(block + used, 0, (length + 1 - used) * sizeof(Ch));
    return block;
}

template <class Ch>
void FreeText(Ch*& block) {
    if (block == nullptr) return;
    block[0] = 0;
    ::operator delete(block);
    block = nullptr;
}

}  // namespace ZBase::detail
