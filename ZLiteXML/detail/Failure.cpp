#include "Failure.h"

#include <Base/text/UnicodeConversions.h>
#include <ZLiteXML/XMLException.h>

#include <cstring>

namespace ZLiteXML {

void ThrowFailure(const std::string& text) {
    ZBase::ExceptionImpl<XMLException> failure;
    failure.SetDomainAndID(0, -1);
    failure.SetMessage(ZBase::UTF8ToWideChar(text.c_str(), true).c_str());
    throw failure;
}

std::string Quoted(const char* name) {
    constexpr std::size_t most = 100;  // bytes
    std::size_t size = strnlen(name, most + 1);
    if (size <= most) return "\"" + std::string(name, size) + "\"";
    for (size = most; size != 0 && (static_cast<unsigned char>(name[size]) & 0xC0u) == 0x80;) --size;
    return "\"" + std::string(name, size) + "...\"";
}

}  // namespace ZLiteXML
