#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

#include <new>
#include <utility>

namespace ZBase {

/// The type that the library throws: `throw ExceptionImpl<X>` is caught as `ExceptionImpl<X>`, `X` or
/// `Message`. It adds nothing to `X`.
template <class T>
class ZBASE_API ExceptionImpl : public T {
public:
    using T::T;
    ExceptionImpl() = default;
};

// Each marks the subsystem that failed; what happened is in the `Message`.

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
