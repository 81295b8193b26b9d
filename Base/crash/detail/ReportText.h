#pragma once

#include <Base/frame/WideString.h>

#include <string>

namespace ZBase::detail {

/// UTF-8 up to the first zero; a unit that is no character becomes "?".
std::string ReportText(const WideString& text);

WideString WideReportText(const std::string& text);

}  // namespace ZBase::detail
