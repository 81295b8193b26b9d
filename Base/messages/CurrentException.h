#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// The exception that is being handled as a message, whatever it is. For the edge of a server:
///
///     catch (...) { log << MessageOfCurrentException(); }
///
/// - of a `Message` it is the copy;
/// - of a `std::bad_alloc` domain `MESSAGE_DOMAIN_ERRNO`, id 12;
/// - of a `std::system_error` what it says, in domain 0 with id -1, and wrapped in that one of domain
///   `MESSAGE_DOMAIN_ERRNO`, whose id is the error number, if the code means one;
/// - of another `std::exception` what it says, in domain 0 with id -1;
/// - of anything else the name of its type, in domain 0 with id -1.
///
/// An exception that another was thrown with (`std::throw_with_nested`) is nested as the cause, up to a depth
/// of 64; behind a message that has a cause already it follows on the same level. Where nothing is being
/// handled, or an exception of another language, the message is empty. Never throws: what there is no memory
/// for is left out.
ZBASE_API Message MessageOfCurrentException() noexcept;

}  // namespace ZBase
