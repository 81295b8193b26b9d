#include <Base/memory/Buffer.h>

#include <Base/memory/detail/MemoryFailures.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

namespace ZBase {

std::size_t Buffer::sDefaultBlockSize = 4096;
bool Buffer::sGrowDanamically = true;
const std::size_t Buffer::sDefaultGrowLimitInMB = 256;
const std::size_t Buffer::sMinimumGrowLimitInMB = 8;

namespace {

constexpr std::size_t kPieceAlignment = 8;

void* AllocateAligned(std::size_t size, std::size_t alignment, Buffer* buffer) {
    if (alignment <= kPieceAlignment) return buffer->Allocate(size);
    const std::size_t padding = alignment - kPieceAlignment;
    size = std::max<std::size_t>(size, 1);  // so that the padding is not the whole size
    if (!std::has_single_bit(alignment) || size > std::numeric_limits<std::size_t>::max() - padding)
        throw BadAllocation();
    auto* const piece = static_cast<unsigned char*>(buffer->Allocate(size + padding));
    const auto address = reinterpret_cast<std::uintptr_t>(piece);
    return piece + (((address + alignment - 1) & ~(alignment - 1)) - address);
}

}  // namespace

}  // namespace ZBase

void* operator new(std::size_t size, ZBase::Buffer* buffer) {
    return buffer->Allocate(size);
}
void* operator new[](std::size_t size, ZBase::Buffer* buffer) {
    return buffer->Allocate(size);
}
void operator delete(void*, ZBase::Buffer*) noexcept {}
void operator delete[](void*, ZBase::Buffer*) noexcept {}

void* operator new(std::size_t size, std::align_val_t alignment, ZBase::detail::PlaceInBuffer place) {
    return ZBase::AllocateAligned(size, static_cast<std::size_t>(alignment), place.mpBuffer);
}
void* operator new[](std::size_t size, std::align_val_t alignment, ZBase::detail::PlaceInBuffer place) {
    return ZBase::AllocateAligned(size, static_cast<std::size_t>(alignment), place.mpBuffer);
}
void operator delete(void*, std::align_val_t, ZBase::detail::PlaceInBuffer) noexcept {}
void operator delete[](void*, std::align_val_t, ZBase::detail::PlaceInBuffer) noexcept {}
