#include <Base/messages/SimpleMessageLocalizer.h>

#include <Base/messages/SystemErrors.h>
#include <Base/messages/detail/MessageLine.h>
#include <Base/text/UnicodeConversions.h>

#include <charconv>
#include <iterator>
#include <limits>
#include <string>

namespace ZBase {

namespace {

constexpr const char* kUnknownError = "Unknown error.";

// " (Windows API error 5)"
void AppendOrigin(std::string& line, unsigned short domain, const char* kind, int id) {
    char digits[std::numeric_limits<int>::digits10 + 2];
    const std::to_chars_result written = std::to_chars(digits, std::end(digits), id);
    line.append(" (").append(ToString(domain)).append(kind).append(digits, written.ptr).append(1, ')');
}

void AppendDescription(std::string& line, const ReturnWString& description, unsigned short domain, int id) {
    const ReturnString text = WideCharToUTF8(description.c_str(), false);
    line.append(text.c_str() != nullptr ? text.c_str() : kUnknownError);
    AppendOrigin(line, domain, " error ", id);
}

}  // namespace

void detail::AppendSimpleText(std::string& text, unsigned short language, unsigned short domain, int id,
                              const char* textTemplate, const char* const parameters[]) {
    const auto code = static_cast<unsigned int>(id);
    if (domain == MESSAGE_DOMAIN_ERRNO) {
        AppendDescription(text, GetStandardCLibraryErrorDescriptionOrNULL(id), domain, id);
    } else if (domain == MESSAGE_DOMAIN_WIN32_API) {
        AppendDescription(text, GetWin32APIErrorDescriptionOrNULL(code, language), domain, id);
    } else if (domain == MESSAGE_DOMAIN_WIN32_EXCEPTION) {
        text.append("Windows exception ").append(GetWin32ExceptionSymbolOrHexUpperString(code).c_str());
    } else {
        AppendMerged(text, textTemplate != nullptr ? textTemplate : kUnknownError, parameters);
        AppendOrigin(text, domain, " message ", id);
    }
}

ReturnString SimpleMessageLocalizer::LocalizeText(unsigned short language, unsigned short domain, int id,
                                                  const char* textTemplate, const char* const* parameters) {
    std::string text;
    detail::AppendSimpleText(text, language, domain, id, textTemplate, parameters);
    return ReturnString(text.c_str());
}

}  // namespace ZBase
