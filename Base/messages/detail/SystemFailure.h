#pragma once

namespace ZBase::detail {

/// Throws `ExceptionImpl<Message>` with domain 0, id `code` and the text `what`, a line feed and the
/// description of the code.
[[noreturn]] void ThrowSystemFailure(const unsigned short* what, unsigned int code);

/// The same with the last code of the calling thread.
[[noreturn]] void ThrowSystemFailure(const unsigned short* what);

/// Throws it with id -1 and the text alone.
[[noreturn]] void ThrowFailure(const unsigned short* what);

}  // namespace ZBase::detail
