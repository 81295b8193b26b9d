#include <Base/diagnostics/AddrToLine.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/platform/os/stacks/DebugHelp.h>

namespace ZBase {

AddrToLine::AddrToLine() : mIsInitialized(false) {}

void AddrToLine::Initialize() {
    mIsInitialized = true;
}

void AddrToLine::Fetch(const std::uint64_t& address, std::string& module, std::string& symbol,
                       std::string& file, std::string& line) {
    void* const process = os::CurrentProcess();
    const auto getModule = gDbgHelpBuilder.GetSymGetModuleInfo64();
    const auto getSymbol = gDbgHelpBuilder.GetSymGetSymFromAddr();
    const auto getLine = gDbgHelpBuilder.GetSymGetLineFromAddr();

    IMAGEHLP_MODULE64 moduleRecord{};
    moduleRecord.SizeOfStruct = sizeof moduleRecord;
    if (getModule != nullptr) getModule(process, address, &moduleRecord);
    module = moduleRecord.ImageName;

    SymbolRecord symbolRecord{};
    symbolRecord.symbol.SizeOfStruct = sizeof symbolRecord;
    symbolRecord.symbol.MaxNameLength = kMaxSymbolName;
    symbolRecord.symbol.Flags = kIsReturnAddress;
    std::uint64_t displacement = 0;
    if (getSymbol == nullptr || getSymbol(process, address, &displacement, &symbolRecord.symbol) == 0) return;
    symbol = symbolRecord.symbol.Name;

    IMAGEHLP_LINE64 lineRecord{};
    lineRecord.SizeOfStruct = sizeof lineRecord;
    lineRecord.Key = reinterpret_cast<void*>(std::uintptr_t{kIsReturnAddress});
    std::uint32_t lineDisplacement = 0;
    if (getLine == nullptr || getLine(process, address, &lineDisplacement, &lineRecord) == 0) return;
    file = lineRecord.FileName;
    line = std::to_string(lineRecord.LineNumber);
}

}  // namespace ZBase
