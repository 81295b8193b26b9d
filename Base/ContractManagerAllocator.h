#pragma once

#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace ZBase {

class MemoryContract;

namespace detail {

/// `bytes` of the heap, charged to `contract` unless that is null.
ZBASE_API void* AllocateUnderContract(std::size_t bytes, MemoryContract* contract);

}  // namespace detail

/// Standard allocator for containers whose memory is charged to a contract: it requests the bytes, takes them
/// from the heap and settles. The contract is not called when memory is freed. Throws
/// `ContractManagerAllocException` when the contract refuses, `std::bad_alloc`, and whatever the contract
/// throws.
template <class T>
class ContractManagerAllocator {
public:
    using value_type = T;

    ContractManagerAllocator() noexcept = default;
    explicit ContractManagerAllocator(MemoryContract* contract) noexcept : mpContract(contract) {}
    template <class U>
    ContractManagerAllocator(const ContractManagerAllocator<U>& other) noexcept
        : mpContract(other.GetContract()) {}

    [[nodiscard]] T* allocate(std::size_t count) {
        static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
        // A budget is not asked for what no memory can have.
        if (count > PTRDIFF_MAX / sizeof(T)) throw std::bad_array_new_length();
        return static_cast<T*>(detail::AllocateUnderContract(count * sizeof(T), mpContract));
    }

    void deallocate(T* memory, std::size_t) noexcept { ::operator delete(memory); }

    MemoryContract* GetContract() const noexcept { return mpContract; }

    /// Memory of one can be freed by any other.
    template <class U>
    bool operator==(const ContractManagerAllocator<U>&) const noexcept {
        return true;
    }

private:
    MemoryContract* mpContract = nullptr;  // held, not owned: the container's holder keeps it alive
};

}  // namespace ZBase
