#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// The exception that is being handled as a message, whatever its type. For the edge of a server:
///
///     catch (...) { log << MessageOfCurrentException(); }
///
/// - for a `Message` the copy;
/// - for a `std::bad_alloc` domain `MESSAGE_DOMAIN_ERRNO`, id 12;
/// - for a `std::system_error` its text, in domain 0 with id -1, which wraps one of domain
///   `MESSAGE_DOMAIN_ERRNO` with the error number as id, if the code is one;
/// - for another `std::exception` its text, in domain 0 with id -1;
/// - for anything else the name of its type, in domain 0 with id -1.
///
/// An exception that another was thrown with (`std::throw_with_nested`) is nested as the cause, up to a depth
/// of 64; after a message that has a cause already it follows on the same level. If no exception is being
/// handled, or one of another language, the message is empty. Never throws: parts without memory are left
/// out.
ZBASE_API Message MessageOfCurrentException() noexcept;

}  // namespace ZBase
