#pragma once

#include <Base/frame/WideString.h>

#include <string>

namespace ZBase::detail {

/// UTF-8 up to the first zero; a unit that is not part of a character becomes "?".
std::string ReportText(const WideString& text);

/// The name of a crash key for a form: in its UTF-8 each octet that is not printable ASCII, and a quote,
/// becomes "%" and two digits, as in browsers. An empty name is "%".
std::string ReportName(const std::string& name);

WideString WideReportText(const std::string& text);

}  // namespace ZBase::detail
