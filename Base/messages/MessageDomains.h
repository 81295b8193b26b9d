#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

// Domains of error numbers. A domain says whose number the id of a `Message` is.
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_UNKNOWN;          // 0
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_ERRNO;            // 10
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_WIN32_API;        // 100
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_WIN32_EXCEPTION;  // 101
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_SERVER;           // 300

/// The name of a domain, such as "Windows API"; "Unknown" for a number without one. A static text.
ZBASE_API const char* ToString(unsigned short domain);

/// The number of the domain that is called `name` in any case of ASCII letters; 0 for any other name, and for
/// "APPLE Signal". Never trims. A null `name` gives 0.
ZBASE_API unsigned short ToMessageDomain(const char* name);

}  // namespace ZBase
