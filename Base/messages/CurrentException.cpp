#include <Base/messages/CurrentException.h>
#include <Base/messages/detail/NestedExceptions.h>
#include <Base/messages/detail/Records.h>
#include <Base/platform/os/CurrentExceptionType.h>

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace ZBase {

using namespace detail;

namespace {

constexpr int kNoCode = -1;

// The text is passed as a parameter: in a template "%%" would be a placeholder.
Message Saying(const char* words) noexcept {
    Message message(MESSAGE_DOMAIN_UNKNOWN, kNoCode, "%1");
    return std::move(message << words);
}

Message OfSystemError(const std::system_error& failure) {
    const std::error_condition condition = failure.code().default_error_condition();
    if (condition.category() != std::generic_category()) return Saying(failure.what());
    Message message(MESSAGE_DOMAIN_ERRNO, condition.value(), nullptr);
    return std::move(message.WrapBy(MESSAGE_DOMAIN_UNKNOWN, kNoCode, "%1") << failure.what());
}

Message OfUnknownType() noexcept {
    char name[256];
    os::GetCurrentExceptionType(name, sizeof name, true);
    Message message(MESSAGE_DOMAIN_UNKNOWN, kNoCode, "An exception of type %1.");
    return std::move(message << name);
}

// The failure without its nested ones.
Message OfFailureAlone(const std::exception_ptr& failure) noexcept {
    try {
        std::rethrow_exception(failure);
    } catch (const Message& message) {
        return message;
    } catch (const std::bad_alloc& shortage) {
        return Message(MESSAGE_DOMAIN_ERRNO, ENOMEM, shortage.what());
    } catch (const std::system_error& error) {
        return OfSystemError(error);
    } catch (const std::exception& other) {
        return Saying(other.what());
    } catch (...) {
        return OfUnknownType();
    }
}

Message OfFailure(NestedExceptions failure) noexcept {
    Message message = OfFailureAlone(failure.Present());
    failure.Step();
    if (failure.Present() == nullptr) return message;
    Message cause = OfFailure(std::move(failure));
    if (message.GetLowerLevelMessageOrNULL() != nullptr)
        return std::move(cause.PrependBy(std::as_const(message)));
    NestCopy(BlockOf(cause), BlockOf(message), TAG_LOWER_LEVEL);
    return message;
}

}  // namespace

Message MessageOfCurrentException() noexcept {
    const std::exception_ptr failure = std::current_exception();
    return failure ? OfFailure(NestedExceptions(failure)) : Message();
}

}  // namespace ZBase
