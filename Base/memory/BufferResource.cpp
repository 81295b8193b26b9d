#include <Base/memory/BufferResource.h>

#include <Base/memory/Buffer.h>

#include <new>

namespace ZBase {

BufferResource::~BufferResource() = default;

void* BufferResource::do_allocate(std::size_t bytes, std::size_t alignment) {
    return ::operator new(bytes, std::align_val_t{alignment}, mpBuffer);
}

void BufferResource::do_deallocate(void*, std::size_t, std::size_t) {}

bool BufferResource::do_is_equal(const std::pmr::memory_resource& other) const noexcept {
    const auto* const resource = dynamic_cast<const BufferResource*>(&other);
    return resource != nullptr && resource->mpBuffer == mpBuffer;
}

}  // namespace ZBase
