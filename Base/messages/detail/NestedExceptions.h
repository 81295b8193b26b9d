#pragma once

#include <cstddef>
#include <exception>

namespace ZBase::detail {

/// An exception and those nested in it (`std::throw_with_nested`), the outermost first. Read each by a
/// `rethrow_exception` of `Present()`.
class NestedExceptions {
public:
    /// Levels below the outermost; a walk ends there.
    static constexpr std::size_t kDeepest = 64;

    explicit NestedExceptions(std::exception_ptr outermost) noexcept;

    /// Null at the end.
    const std::exception_ptr& Present() const noexcept { return mPresent; }

    /// Steps to the cause of the present one. Takes memory for the rethrown exception, from the run-time's
    /// emergency pool if the heap has none.
    void Step() noexcept;

private:
    std::exception_ptr mPresent;
    std::size_t mDepth = 0;
};

}  // namespace ZBase::detail
