#include <Base/frame/Exceptions.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>

#include <string>

namespace ZBase::detail {

void ThrowConversionFailure(const unsigned short* text) {
    ExceptionImpl<StringConversionException> failure;
    failure.SetDomainAndID(0, -1);
    failure.SetMessage(text);
    throw failure;
}

// In replace mode, since a text may quote input that is not UTF-8.
void ThrowConversionFailure(const char* text) {
    ThrowConversionFailure(UTF8ToWideChar(text, true).c_str());
}

void ThrowConversionFailure(const char* text, std::uint64_t value, int width) {
    ThrowConversionFailure((text + HexDigits(value, width) + '.').c_str());
}

}  // namespace ZBase::detail
