// A debug help library scripted by the test: ZBASE_TEST_STEPS frames (default 8), all in one function of this
// module, its name ZBASE_TEST_NAME, and whether it starts (ZBASE_TEST_START=0: not). Built without NAMES_ALL
// it lacks one entry.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <Base/diagnostics/DebugHelpTypes.h>

#define ENTRY extern "C" [[gnu::visibility("default")]]

using namespace ZBase;

namespace {

std::uint32_t gOptions = 1;
int gStarts = 0;
char gFile[] = "scripted.cpp";

long Setting(const char* name, long otherwise) {
    const char* value = std::getenv(name);
    return value == nullptr ? otherwise : std::atol(value);
}

void Somewhere() {}

std::uint64_t Start() {
    return reinterpret_cast<std::uint64_t>(&Somewhere);
}

}  // namespace

ENTRY int ScriptedStarts() {
    return gStarts;
}

ENTRY std::uint32_t ScriptedOptions() {
    return gOptions;
}

ENTRY void* SymFunctionTableAccess64(void*, std::uint64_t) {
    return nullptr;
}
ENTRY std::uint64_t SymGetModuleBase64(void*, std::uint64_t) {
    return 0;
}
ENTRY std::int32_t StackWalk64(std::uint32_t machine, void*, void*, STACKFRAME64* frame, void*,
                               ReadProcessMemoryFunction readMemory, SymFunctionTableAccess64Function table,
                               SymGetModuleBase64Function base, TranslateAddressFunction translate) {
    if (machine != 0x8664 || readMemory != nullptr || table != SymFunctionTableAccess64 ||
        base != SymGetModuleBase64 || translate != nullptr || frame->AddrPC.Mode != AddrModeFlat)
        std::abort();
    const auto step = static_cast<long>(++frame->Reserved[2]);
    if (step > Setting("ZBASE_TEST_STEPS", 8)) return 0;
    frame->AddrPC.Offset =
        step == Setting("ZBASE_TEST_NULL", 0) ? 0 : Start() + static_cast<std::uint64_t>(step);
    frame->AddrFrame.Offset =
        step == Setting("ZBASE_TEST_NO_FRAME", 0) ? 0 : 0x1000 + static_cast<std::uint64_t>(step);
    return 1;
}
ENTRY std::int32_t SymGetSymFromAddr64(void*, std::uint64_t address, std::uint64_t* displacement,
                                       IMAGEHLP_SYMBOL64* symbol) {
    const char* name = std::getenv("ZBASE_TEST_NAME");
    if (symbol->SizeOfStruct != 1056 || symbol->MaxNameLength != 1024) std::abort();
    if (name == nullptr) return 0;
    symbol->Address = Start();
    *displacement = address - Start();
    const std::size_t length = std::min<std::size_t>(std::strlen(name), symbol->MaxNameLength - 1);
    std::memcpy(symbol->Name, name, length);
    symbol->Name[length] = 0;
    return 1;
}
ENTRY std::int32_t SymGetLineFromAddr64(void*, std::uint64_t address, std::uint32_t* displacement,
                                        IMAGEHLP_LINE64* line) {
    if (line->SizeOfStruct != 40) std::abort();
    if (Setting("ZBASE_TEST_LINE", 0) == 0) return 0;
    // For the start of the symbol, whatever the frame's address.
    *displacement = address == Start() ? 0xABC : 0xDEF;
    line->FileName = gFile;
    line->LineNumber = static_cast<std::uint32_t>(Setting("ZBASE_TEST_LINE", 0));
    return 1;
}
ENTRY std::int32_t SymCleanup(void*) {
    std::abort();
}
ENTRY std::uint32_t SymSetOptions(std::uint32_t options) {
    return gOptions = options;
}
ENTRY std::int32_t SymInitialize(void* process, const char* path, std::int32_t invade) {
    if (process == nullptr || path != nullptr || invade != 1) std::abort();
    ++gStarts;
    return Setting("ZBASE_TEST_START", 1) != 0;
}
ENTRY std::uint32_t SymGetOptions() {
    return gOptions;
}
ENTRY std::int32_t SymGetSearchPath(void*, char*, std::uint32_t) {
    return 0;
}
ENTRY std::int32_t SymSetSearchPath(void*, const char*) {
    return 0;
}
ENTRY std::int32_t SymEnumerateModules64(void*, EnumerateModules64Callback, void*) {
    return 0;
}
ENTRY std::uint64_t SymLoadModule64(void*, void*, const char*, const char*, std::uint64_t, std::uint32_t) {
    return 0;
}
#ifndef ZBASE_TEST_ENTRY_MISSING
ENTRY std::int32_t SymGetModuleInfo64(void*, std::uint64_t, IMAGEHLP_MODULE64*) {
    return 0;
}
#endif
