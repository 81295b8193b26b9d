#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReferenceCounted.h>

#include <cstddef>

namespace ZBase {

/// A budget that a buffer or a conversion pays from. Each charge has two steps: a request, which can be
/// refused with a system code, and, once the memory has been obtained, a settling call with the same number
/// of bytes. When the memory can't be obtained the second does not come. Memory given back is not told; a
/// contract learns of a buffer's end by losing its reference.
///
/// The operations are called on whatever thread needs memory, several at once for a lock-free buffer, and
/// must not allocate from the buffer that asks.
class ZBASE_API MemoryContract : public virtual ReferenceCounted {
public:
    ~MemoryContract() override = default;

    /// Asked before an allocation of `bytes` that is not a chunk of a buffer; 4,294,967,295 stands for that
    /// many and for more. 0 grants; anything else refuses and is the code that the failure carries.
    virtual unsigned int Request(unsigned int bytes) = 0;

    /// Told when that allocation has succeeded.
    virtual void Settle(unsigned int bytes) = 0;

    /// For the implementer; the library does not call it.
    virtual void Refund(unsigned int) {}

    /// Asked before a buffer takes a chunk of `bytes`. `chunk` is always true. 0 grants.
    virtual unsigned int RequestChunk(std::size_t bytes, bool chunk) = 0;

    /// Told when the chunk was taken.
    virtual void SettleChunk(std::size_t bytes) = 0;
};

}  // namespace ZBase
