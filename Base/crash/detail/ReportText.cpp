#include <Base/crash/detail/ReportText.h>
#include <Base/frame/Exceptions.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/UnicodeConversions.h>

namespace ZBase::detail {

std::string ReportText(const WideString& text) {
    try {
        return WideCharToUTF8(text.c_str(), true).c_str();
    } catch (const StringConversionException&) {  // a lone surrogate
        return WideCharToASCII(text.c_str(), true).c_str();
    }
}

WideString WideReportText(const std::string& text) {
    return UTF8ToWideChar(text.c_str(), true).c_str();
}

}  // namespace ZBase::detail
