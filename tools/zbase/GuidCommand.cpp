#include "Commands.h"
#include "Console.h"

namespace {

ZBase::_GUID Parse(const std::string& text) {
    try {
        return ZBase::GUID(ZBase::UTF8ToWideChar(text.c_str(), true).c_str());
    } catch (const ZBase::Message&) {
        throw Failure("\"" + text + "\" is no identifier in any of its text forms");
    }
}

}  // namespace

int RunGuid(const std::string& text) {
    const ZBase::_GUID guid = text.empty() ? ZBase::GUID() : Parse(text);
    PrintRow("library", Narrow(ZBase::Guid2String(guid).c_str()));
    PrintRow("plain", Narrow(ZBase::Guid2MSUniString(guid).c_str()));
    PrintRow("braces", Narrow(ZBase::Guid2MSString(guid).c_str()));
    PrintRow("bytes", Narrow(ZBase::Binary2String(&guid, sizeof guid).c_str()));
    return 0;
}
