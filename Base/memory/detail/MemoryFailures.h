#pragma once

#include <Base/frame/Exceptions.h>

#include <new>

namespace ZBase {

/// The library's own `std::bad_alloc`.
class BadAllocation : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "bad allocation"; }
};

/// Throws `BufferException` with a terminated text.
[[noreturn]] void ThrowBufferException(const unsigned short* text);

/// Throws `ContractManagerAllocException` with a contract's code, unless that is 0.
void CheckContractAnswer(unsigned int code);

/// What `attempt` answers, or false where it fails because memory is refused: by the heap, by the buffer, by
/// a contract or by a governor. Any other failure passes.
template <class Attempt>
bool IsGranted(Attempt attempt) {
    try {
        return attempt();
    } catch (const std::bad_alloc&) {
    } catch (const ExceptionImpl<BufferException>&) {
    } catch (const ExceptionImpl<ContractManagerAllocException>&) {
    } catch (const MemGoverningException&) {
    }
    return false;
}

}  // namespace ZBase
