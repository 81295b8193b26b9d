#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReferenceCounted.h>

#include <cstddef>

namespace ZBase {

/// A budget for a buffer or a conversion. Each charge has two steps: a request, which can be refused with a
/// system code, and, once the memory was allocated, a settling call with the same number of bytes. If the
/// allocation fails the second call does not come. There is no call when memory is freed; at the end of a
/// buffer the contract loses a reference.
///
/// The operations are called on whatever thread needs memory, several at once for a lock-free buffer, and
/// must not allocate from the calling buffer.
class ZBASE_API MemoryContract : public virtual ReferenceCounted {
public:
    ~MemoryContract() override = default;

    /// Called before an allocation of `bytes` that is not a chunk of a buffer; 4,294,967,295 stands for that
    /// many and for more. 0 grants; anything else refuses and is the code that the failure carries.
    virtual unsigned int Request(unsigned int bytes) = 0;

    /// Called when that allocation has succeeded.
    virtual void Settle(unsigned int bytes) = 0;

    /// For the implementer; the library does not call it.
    virtual void Refund(unsigned int) {}

    /// Called before a buffer takes a chunk of `bytes`. `chunk` is always true. 0 grants.
    virtual unsigned int RequestChunk(std::size_t bytes, bool chunk) = 0;

    /// Called when the chunk was allocated.
    virtual void SettleChunk(std::size_t bytes) = 0;
};

}  // namespace ZBase
