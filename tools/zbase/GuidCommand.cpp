#include "Commands.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/ZBase.h>

#include <memory>

namespace {

ZBase::_GUID Parse(const std::string& text) {
    try {
        return ZBase::GUID(Wide(text).c_str());
    } catch (const ZBase::Message&) {
        throw Failure("\"" + text + "\" is no identifier in any of its text forms");
    }
}

// An empty text means a new identifier.
int ShowGuid(const std::string& text) {
    const ZBase::_GUID guid = text.empty() ? ZBase::GUID() : Parse(text);
    PrintRow("library", Narrow(ZBase::Guid2String(guid).c_str()));
    PrintRow("plain", Narrow(ZBase::Guid2MSUniString(guid).c_str()));
    PrintRow("braces", Narrow(ZBase::Guid2MSString(guid).c_str()));
    PrintRow("bytes", Narrow(ZBase::Binary2String(&guid, sizeof guid).c_str()));
    return 0;
}

}  // namespace

void AddGuidCommand(Command& zbase) {
    Command guid = zbase.AddCommand("guid", "Make a new identifier, or show one in all its forms");
    const auto text = std::make_shared<std::string>();
    guid.AddOption("TEXT", *text, "An identifier in any text form");
    guid.Runs([text] { return ShowGuid(*text); });
}
