#include <Base/crash/detail/ReportText.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/LoneSurrogates.h>

namespace ZBase::detail {

std::string ReportText(const WideString& text) {
    return WideCharToUTF8(ReplaceLoneSurrogates(text.c_str(), '?').c_str(), true).c_str();
}

std::string ReportName(const std::string& name) {
    std::string safe;
    for (const char c : name) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet >= 0x20 && octet < 0x7F && c != '"') {
            safe.push_back(c);
        } else {
            safe.push_back('%');
            safe.push_back("0123456789ABCDEF"[octet >> 4]);
            safe.push_back("0123456789ABCDEF"[octet & 0x0F]);
        }
    }
    return safe.empty() ? "%" : safe;
}

WideString WideReportText(const std::string& text) {
    return UTF8ToWideChar(text.c_str(), true).c_str();
}

}  // namespace ZBase::detail
