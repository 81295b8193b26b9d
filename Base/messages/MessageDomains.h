#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

// Domains of error numbers: what the id of a `Message` counts.
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_UNKNOWN;          // 0
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_ERRNO;            // 10
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_WIN32_API;        // 100
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_WIN32_EXCEPTION;  // 101
ZBASE_API extern const unsigned short MESSAGE_DOMAIN_SERVER;           // 300

/// The name of a domain, such as "Windows API"; "Unknown" for any other number. A static text.
ZBASE_API const char* ToString(unsigned short domain);

/// The number of the domain with that name, ignoring the case of ASCII letters; 0 for any other name, and for
/// "APPLE Signal". Never trims. A null `name` gives 0.
ZBASE_API unsigned short ToMessageDomain(const char* name);

}  // namespace ZBase
