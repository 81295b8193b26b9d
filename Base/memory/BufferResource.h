#pragma once

#include <Base/frame/Api.h>

#include <cstddef>
#include <memory_resource>

namespace ZBase {

class Buffer;

/// A buffer as the memory of the standard's containers:
///
///     BufferResource memory(buffer);
///     std::pmr::vector<int> numbers(&memory);
///
/// Freed memory stays with the buffer until that ends, so a growing container costs the sum of its sizes:
/// reserve where the size is known. Threads may share it as they may share the buffer. An allocation throws
/// what `Buffer::Allocate` throws, and `std::bad_alloc` for an alignment that no memory can have.
class ZBASE_API BufferResource final : public std::pmr::memory_resource {
public:
    /// `buffer` is not null and must outlive the resource and what lies in it.
    explicit BufferResource(Buffer* buffer) noexcept : mpBuffer(buffer) {}
    ~BufferResource() override;

    Buffer* GetBuffer() const noexcept { return mpBuffer; }

private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override;
    void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override;

    // Resources over the same buffer are equal. The other one is asked for its type at run time.
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

    Buffer* mpBuffer;  // held, not owned
};

}  // namespace ZBase
