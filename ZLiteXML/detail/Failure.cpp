#include "Failure.h"

#include <Base/text/UnicodeConversions.h>
#include <ZLiteXML/XMLException.h>

namespace ZLiteXML {

void ThrowFailure(const std::string& text) {
    ZBase::ExceptionImpl<XMLException> failure;
    failure.SetDomainAndID(0, -1);
    failure.SetMessage(ZBase::UTF8ToWideChar(text.c_str(), true).c_str());
    throw failure;
}

}  // namespace ZLiteXML
