#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

#include <concepts>
#include <type_traits>
#include <utility>

namespace ZBase {

/// The type that the library throws: `throw ExceptionImpl<X>` is caught as `ExceptionImpl<X>`, `X` or
/// `Message`. It adds nothing to `X`.
template <class T>
class ZBASE_API ExceptionImpl : public T {
public:
    using T::T;
    ExceptionImpl() = default;

    /// The same failure as another type: `throw ExceptionImpl<X>(message)` throws a copy of `message`, or, as
    /// `std::move(message)`, its content.
    explicit ExceptionImpl(const Message& message) noexcept
        requires std::derived_from<T, Message> && std::is_nothrow_default_constructible_v<T>
    {
        static_cast<Message&>(*this) = message;
    }
    explicit ExceptionImpl(Message&& message) noexcept
        requires std::derived_from<T, Message> && std::is_nothrow_default_constructible_v<T>
    {
        static_cast<Message&>(*this) = std::move(message);
    }
};

// Each marks the subsystem that failed; the failure itself is in the `Message`.

/// An allocator failed.
class ZBASE_API BufferException : public Message {
public:
    using Message::Message;
};

/// A memory contract refused to pay.
class ZBASE_API ContractManagerAllocException : public Message {
public:
    using Message::Message;
};

/// A memory governor refused. Thrown as it is, never as `ExceptionImpl<MemGoverningException>`.
class ZBASE_API MemGoverningException : public Message {
public:
    using Message::Message;
};

/// The event channel refused a registration.
class ZBASE_API AppGlobalEventReporterException : public Message {
public:
    using Message::Message;
};

/// A text could not be converted.
class ZBASE_API StringConversionException : public Message {
public:
    using Message::Message;
};

}  // namespace ZBase
