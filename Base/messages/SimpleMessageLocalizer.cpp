#include <Base/messages/SimpleMessageLocalizer.h>

#include <Base/messages/MessageFormat.h>
#include <Base/messages/SystemErrors.h>
#include <Base/text/NumberText.h>
#include <Base/text/UnicodeConversions.h>

#include <string>

namespace ZBase {

namespace {

constexpr const char* kUnknownError = "Unknown error.";

// "text (Windows API error 5)"
ReturnString WithOrigin(const char* text, unsigned short domain, const char* kind, int id) {
    std::string line = text;
    line.append(" (").append(ToString(domain)).append(kind).append(ToDecimalString(id).c_str()).append(")");
    return ReturnString(line.c_str());
}

ReturnString DescriptionWithOrigin(const ReturnWString& description, unsigned short domain, int id) {
    const ReturnString text = WideCharToUTF8(description.c_str(), false);
    return WithOrigin(text.c_str() != nullptr ? text.c_str() : kUnknownError, domain, " error ", id);
}

}  // namespace

ReturnString SimpleMessageLocalizer::LocalizeText(unsigned short language, unsigned short domain, int id,
                                                  const char* textTemplate, const char* const* parameters) {
    const auto code = static_cast<unsigned int>(id);
    if (domain == MESSAGE_DOMAIN_ERRNO) {
        return DescriptionWithOrigin(GetStandardCLibraryErrorDescriptionOrNULL(id), domain, id);
    }
    if (domain == MESSAGE_DOMAIN_WIN32_API) {
        return DescriptionWithOrigin(GetWin32APIErrorDescriptionOrNULL(code, language), domain, id);
    }
    if (domain == MESSAGE_DOMAIN_WIN32_EXCEPTION) {
        const std::string prefix = "Windows exception ";
        return ReturnString((prefix + GetWin32ExceptionSymbolOrHexUpperString(code).c_str()).c_str());
    }
    const char* merged = textTemplate != nullptr ? textTemplate : kUnknownError;
    return WithOrigin(MergeParametersIntoTemplate(merged, parameters).c_str(), domain, " message ", id);
}

}  // namespace ZBase
