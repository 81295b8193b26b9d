// Debug help is the system's own library. Between it and its users stands one function here: it gives frames
// that were recorded as they are, and takes no frame for the last one because nothing is in the register that
// the system's library takes for the frame's address.

#include <Base/platform/os/stacks/DebugHelp.h>
#include <Base/platform/os/stacks/ThreadContext.h>

#include <windows.h>

#include <dbghelp.h>
#include <atomic>
#include <cstring>

namespace ZBase::os {

namespace {

constexpr DWORD kOptionsBeforeStart = SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES;

using Walk = decltype(&StackWalk64);
std::atomic<Walk> spWalk = nullptr;

template <class Function>
Function Find(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

ADDRESS64 Flat(std::uint64_t address) {
    return {address, 0, AddrModeFlat};
}

// How many frames have been given is kept in the record.
BOOL StepRecorded(STACKFRAME64& frame, ThreadContext& context) {
    const auto* const frames = reinterpret_cast<const RecordedFrame*>(context.parameterHome[1]);
    const std::uint64_t count = context.parameterHome[2];
    const std::uint64_t index = frame.Reserved[0]++;
    if (index >= count) return FALSE;
    const bool isLast = index + 1 == count;
    const RecordedFrame& caller = frames[isLast ? index : index + 1];
    frame.AddrPC = Flat(frames[index].address);
    frame.AddrStack = Flat(frames[index].stackPointer);
    frame.AddrReturn = Flat(isLast ? 0 : caller.address);
    // Where the function keeps, or would keep, its caller's frame pointer.
    frame.AddrFrame = Flat(isLast ? caller.stackPointer : caller.stackPointer - 16);
    SetPlace(context, caller.address, caller.stackPointer);
    return TRUE;
}

BOOL CALLBACK WalkStack(DWORD machine, HANDLE process, HANDLE thread, STACKFRAME64* frame, void* context,
                        PREAD_PROCESS_MEMORY_ROUTINE64 readMemory,
                        PFUNCTION_TABLE_ACCESS_ROUTINE64 functionTable, PGET_MODULE_BASE_ROUTINE64 moduleBase,
                        PTRANSLATE_ADDRESS_ROUTINE64 translateAddress) {
    if (frame != nullptr && context != nullptr) {
        auto& state = *static_cast<ThreadContext*>(context);
        if (state.parameterHome[0] == kRecordedFrames) return StepRecorded(*frame, state);
    }
    const Walk walk = spWalk;
    if (!walk(machine, process, thread, frame, context, readMemory, functionTable, moduleBase,
              translateAddress))
        return FALSE;
    if (frame->AddrFrame.Offset == 0 && frame->AddrPC.Offset != 0) frame->AddrFrame = frame->AddrStack;
    return TRUE;
}

}  // namespace

// Which lines are read is settled when a module's symbols are: at the start of the engine.
void* OpenDebugHelp() {
    const HMODULE library = LoadLibraryW(L"DBGHELP.DLL");
    if (library == nullptr) return nullptr;
    const auto getOptions = Find<DWORD(WINAPI*)()>(library, "SymGetOptions");
    const auto setOptions = Find<DWORD(WINAPI*)(DWORD)>(library, "SymSetOptions");
    if (getOptions != nullptr && setOptions != nullptr) setOptions(getOptions() | kOptionsBeforeStart);
    return library;
}

void CloseDebugHelp(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

EntryPoint FindDebugHelpEntry(void* library, const char* name) {
    const auto entry = Find<EntryPoint>(static_cast<HMODULE>(library), name);
    if (entry == nullptr || std::strcmp(name, "StackWalk64") != 0) return entry;
    spWalk = reinterpret_cast<Walk>(entry);
    return reinterpret_cast<EntryPoint>(&WalkStack);
}

void* CurrentProcess() {
    return GetCurrentProcess();
}

void* CurrentThread() {
    return GetCurrentThread();
}

StackCapture FindStackCapture() {
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    return system == nullptr ? nullptr : Find<StackCapture>(system, "RtlCaptureStackBackTrace");
}

}  // namespace ZBase::os
