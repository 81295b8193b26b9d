#pragma once

#include <string>

namespace ZLiteXML {

/// Throws `ExceptionImpl<XMLException>` with a UTF-8 text, bad octets in it replaced.
[[noreturn]] void ThrowFailure(const std::string& text);

}  // namespace ZLiteXML
