#pragma once

#include <cstddef>
#include <exception>

namespace ZBase::detail {

/// An exception and those that it was thrown with (`std::throw_with_nested`), one after the other, the
/// outermost first. Each is looked at by a `rethrow_exception` of `Present()`.
class NestedExceptions {
public:
    /// Behind the outermost; a walk ends there whatever follows.
    static constexpr std::size_t kDeepest = 64;

    explicit NestedExceptions(std::exception_ptr outermost) noexcept;

    /// Null at the end.
    const std::exception_ptr& Present() const noexcept { return mPresent; }

    /// Goes on to the cause of the present one. Takes memory for the rethrown exception, and where the heap
    /// has none, from what the run-time has set aside.
    void Step() noexcept;

private:
    std::exception_ptr mPresent;
    std::size_t mDepth = 0;
};

}  // namespace ZBase::detail
