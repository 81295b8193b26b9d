#pragma once

#include <string>

namespace ZLiteXML {

/// Throws `ExceptionImpl<XMLException>` with a UTF-8 text, bad octets replaced.
[[noreturn]] void ThrowFailure(const std::string& text);

/// A UTF-8 name in quotation marks for such a text; a long one is truncated.
std::string Quoted(const char* name);

}  // namespace ZLiteXML
