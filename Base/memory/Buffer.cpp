#include <Base/memory/Buffer.h>

namespace ZBase {

std::size_t Buffer::sDefaultBlockSize = 4096;
bool Buffer::sGrowDanamically = true;
const std::size_t Buffer::sDefaultGrowLimitInMB = 256;
const std::size_t Buffer::sMinimumGrowLimitInMB = 8;

}  // namespace ZBase

void* operator new(std::size_t size, ZBase::Buffer* buffer) {
    return buffer->Allocate(size);
}
void* operator new[](std::size_t size, ZBase::Buffer* buffer) {
    return buffer->Allocate(size);
}
void operator delete(void*, ZBase::Buffer*) noexcept {}
void operator delete[](void*, ZBase::Buffer*) noexcept {}
