#include "Commands.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/ZBase.h>

namespace {

std::string Login() {
    try {
        return Narrow(ZBase::GetCurrentLogin().c_str());
    } catch (const ZBase::Message& failure) {
        return "not told: " + Narrow(failure.GetMessage());
    }
}

int ShowHost() {
    const unsigned int process = ZBase::GetCurrentProcessID();
    std::size_t pageSize = 0;
    ZBase::GetSymPageSize(&pageSize);
    PrintRow("computer", Narrow(ZBase::GetComputerName().c_str()));
    PrintRow("full name", Narrow(ZBase::GetComputerFullName().c_str()));
    PrintRow("machine", "0x" + Hex(static_cast<unsigned int>(ZBase::GetUniqueMachineID()), 8));
    PrintRow("processors", std::to_string(ZBase::GetNumberOfSystemProcessors()));
    PrintRow("usable", std::to_string(ZBase::GetUsableProcessors()) + " processors, " +
                           ZBase::GetHumanReadableSize(ZBase::GetUsableMemory()) + " of memory");
    PrintRow("page size", ZBase::GetHumanReadableSize(pageSize));
    PrintRow("login", Login());
    PrintRow("locale", ZBase::GetProcessLocale());
    PrintRow("process", std::to_string(process));
    PrintRow("program", Narrow(ZBase::GetProcessName(process).c_str()));
    PrintRow("command", Narrow(ZBase::GetCurrentProcessName().c_str()));
    PrintRow("private", ZBase::GetHumanReadableSize(ZBase::GetPrivateBytes()));
    const auto* inLibrary = reinterpret_cast<const void*>(&ZBase::GetPrivateBytes);
    PrintRow("library", Narrow(ZBase::GetModuleFileNameByAddressWithinModule(inLibrary).c_str()));
    return 0;
}

}  // namespace

void AddHostCommand(Command& zbase) {
    Command host = zbase.AddCommand("host", "Tell what the library says of this host and process");
    host.Runs([] { return ShowHost(); });
}
