#include <Base/messages/detail/NestedExceptions.h>

#include <utility>

namespace ZBase::detail {

namespace {

std::exception_ptr CauseOf(const std::exception_ptr& failure) noexcept {
    try {
        std::rethrow_exception(failure);
    } catch (const std::nested_exception& outer) {
        return outer.nested_ptr();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

NestedExceptions::NestedExceptions(std::exception_ptr outermost) noexcept : mPresent(std::move(outermost)) {}

void NestedExceptions::Step() noexcept {
    if (mPresent != nullptr) mPresent = mDepth++ == kDeepest ? nullptr : CauseOf(mPresent);
}

}  // namespace ZBase::detail
