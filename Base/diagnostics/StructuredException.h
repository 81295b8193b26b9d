#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// A fault of the processor, such as an access violation, as an exception. The `Message` is empty: the fault
/// is in `StructuredExceptionImp`.
class ZBASE_API StructuredException : public Message {
public:
    using Message::Message;
};

/// From now on the faults of the calling thread are thrown as `StructuredExceptionImp`, which is a
/// `StructuredException`. Each also writes a line to the standard output. A stack overflow stays a crash. The
/// code that faults must be compiled with `-fnon-call-exceptions` (GCC), as users of the library's CMake
/// target and pkg-config file are. clang has no such option: there a fault is caught around a call of a
/// function that another source file defines, and one in the `try` block's own code, or in a function that
/// the compiler knows not to throw, ends the process. It can't be undone.
ZBASE_API void SetExceptionTranslator();

}  // namespace ZBase
