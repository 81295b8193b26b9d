#include "tests/scripted/ScriptedDebugHelp.h"

#include <Base/diagnostics/DebugHelpTypes.h>
#include <Base/platform/os/stacks/DebugHelp.h>

#include <cstring>

namespace test {

DebugHelpScript gDebugHelp;

}  // namespace test

namespace {

using test::gDebugHelp;

std::int32_t Walk(std::uint32_t, void* process, void* thread, ZBase::STACKFRAME64* frame, void*,
                  ZBase::ReadProcessMemoryFunction, ZBase::SymFunctionTableAccess64Function,
                  ZBase::SymGetModuleBase64Function, ZBase::TranslateAddressFunction) {
    const std::uint64_t step = ++frame->Reserved[2];
    if (step == 1) {
        const ZBase::ADDRESS64& code = frame->AddrPC;
        const ZBase::ADDRESS64& stack = frame->AddrStack;
        const ZBase::ADDRESS64& base = frame->AddrFrame;
        gDebugHelp.seed = {code.Offset, code.Mode, stack.Offset, stack.Mode, base.Offset, base.Mode};
        gDebugHelp.process = process;
        gDebugHelp.thread = thread;
    }
    if (step > gDebugHelp.steps) return 0;
    frame->AddrPC.Offset = step == gDebugHelp.stepWithoutAddress ? 0 : 0x1000 + step;
    frame->AddrFrame.Offset = 0x2000 + step;
    return 1;
}

void Nothing() {}

std::int32_t Start(void*, const char*, std::int32_t) {
    ++gDebugHelp.started;
    return gDebugHelp.starts;
}

std::int32_t GetSymbol(void*, std::uint64_t address, std::uint64_t* displacement,
                       ZBase::IMAGEHLP_SYMBOL64* symbol) {
    if (gDebugHelp.symbol == nullptr) return 0;
    symbol->Address = 0x1000;
    *displacement = address - 0x1000;
    std::strcpy(symbol->Name, gDebugHelp.symbol);
    return 1;
}

std::int32_t GetLine(void*, std::uint64_t, std::uint32_t*, ZBase::IMAGEHLP_LINE64*) {
    return 0;
}

std::uint32_t gOptions = 0;

std::uint32_t GetOptions() {
    return gOptions;
}

std::uint32_t SetOptions(std::uint32_t options) {
    return gOptions = options;
}

}  // namespace

namespace ZBase::os {

void* OpenDebugHelp() {
    if (!gDebugHelp.isThere) return nullptr;
    ++gDebugHelp.opened;
    return &gDebugHelp;
}

void CloseDebugHelp(void*) {
    --gDebugHelp.opened;
}

EntryPoint FindDebugHelpEntry(void*, const char* name) {
    if (gDebugHelp.missingEntry != nullptr && std::strcmp(name, gDebugHelp.missingEntry) == 0) return nullptr;
    if (std::strcmp(name, "SymGetSymFromAddr64") == 0) return reinterpret_cast<EntryPoint>(GetSymbol);
    if (std::strcmp(name, "SymGetLineFromAddr64") == 0) return reinterpret_cast<EntryPoint>(GetLine);
    if (std::strcmp(name, "StackWalk64") == 0) return reinterpret_cast<EntryPoint>(Walk);
    if (std::strcmp(name, "SymInitialize") == 0) return reinterpret_cast<EntryPoint>(Start);
    if (std::strcmp(name, "SymGetOptions") == 0) return reinterpret_cast<EntryPoint>(GetOptions);
    if (std::strcmp(name, "SymSetOptions") == 0) return reinterpret_cast<EntryPoint>(SetOptions);
    return Nothing;
}

void* CurrentProcess() {
    return &gDebugHelp;
}

void* CurrentThread() {
    return &gOptions;
}

static unsigned short Capture(std::uint32_t, std::uint32_t count, void** addresses, std::uint32_t*) {
    for (std::uint32_t i = 0; i != count; ++i)
        addresses[i] = reinterpret_cast<void*>(0x5000 + std::uintptr_t{i});
    return static_cast<unsigned short>(count);
}

StackCapture FindStackCapture() {
    return gDebugHelp.hasStackCapture ? Capture : nullptr;
}

}  // namespace ZBase::os
