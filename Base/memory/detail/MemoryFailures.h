#pragma once

#include <new>

namespace ZBase {

/// The library's own `std::bad_alloc`.
class BadAllocation : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "bad allocation"; }
};

/// Throws `BufferException` with a terminated text.
[[noreturn]] void ThrowBufferException(const unsigned short* text);

/// What a contract answered: throws `ContractManagerAllocException` with that code unless it is 0.
void CheckContractAnswer(unsigned int code);

}  // namespace ZBase
