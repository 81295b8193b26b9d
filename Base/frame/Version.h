#pragma once

#include <Base/frame/Api.h>

/// The version of these headers, as text and as a number that can be compared: 1.2.3 is 10203.
#define ZBASE_VERSION "1.0.0"
#define ZBASE_VERSION_NUMBER 10000

namespace ZBase {

/// The version of the loaded library, in the form of ZBASE_VERSION. It differs from that in a program that
/// was built with the headers of another version.
ZBASE_API const char* GetLibraryVersion() noexcept;

/// The same as a number, in the form of ZBASE_VERSION_NUMBER.
ZBASE_API int GetLibraryVersionNumber() noexcept;

}  // namespace ZBase
