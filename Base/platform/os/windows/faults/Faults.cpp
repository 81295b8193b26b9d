// The system's runtime translates faults for its own compiler only. Here a handler that is asked before all
// frames looks for the nearest frame that has one of its own: what a system library guards is its matter. If
// the language's exceptions are what that frame handles, the thread goes on in the translator, as if it had
// been called from there, and the exception that it throws takes the usual way.
//
// Frames without a handler are left on the way. A call to where no code is has only such a one, and its
// caller is found like any other.

#include <Base/platform/os/faults/Faults.h>
#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/windows/faults/AllocatorCode.h>
#include <Base/platform/os/windows/faults/Landing.h>
#include <Base/platform/os/windows/stacks/FrameWalker.h>
#include <Base/platform/os/windows/stacks/ImportJump.h>
#include <Base/platform/os/windows/stacks/x86_64/Registers.h>

#include <windows.h>

extern "C" EXCEPTION_DISPOSITION __gxx_personality_seh0(EXCEPTION_RECORD*, void*, CONTEXT*,
                                                        DISPATCHER_CONTEXT*);
extern "C" EXCEPTION_DISPOSITION __gcc_personality_seh0(EXCEPTION_RECORD*, void*, CONTEXT*,
                                                        DISPATCHER_CONTEXT*);

namespace ZBase::os {

namespace {

constexpr unsigned int kFramesToSearch = 1024;
constexpr unsigned int kFramesOfAllocator = 16;  // what an allocator calls is not deep
constexpr DWORD kCppException = 0xE06D7363;      // of the system's own compiler
constexpr DWORD kManagedException = 0xE0434352;

// The state of a thread lies in a slot of the system's: the compiler's thread-local variables take the heap.
DWORD sSlot = TLS_OUT_OF_INDEXES;
const void* sHandlers[2];  // those of the language

// Warnings and errors. What languages throw by themselves is no fault, nor what tells a debugger something.
bool IsFault(DWORD code) {
    return code >> 30 >= 2 && code != static_cast<DWORD>(EXCEPTION_STACK_OVERFLOW) && code != kCppException &&
           code != kManagedException;
}

bool IsOfLanguage(PEXCEPTION_ROUTINE handler) {
    const void* const code = BehindImport(reinterpret_cast<const void*>(handler));
    return code == sHandlers[0] || code == sHandlers[1];
}

// Handlers in the thread's own list, which some systems of this kind still keep: those of frames inside.
bool HasListedHandler(std::uint64_t stackPointer) {
    const std::uint64_t first = InnermostListedHandler();
    return first != 0 && first < stackPointer;
}

FaultTranslator TranslatorOfThread() {
    const DWORD code = GetLastError();
    const auto translator = reinterpret_cast<FaultTranslator>(TlsGetValue(sSlot));
    SetLastError(code);
    return translator;
}

// Runs on the faulting thread. No heap, no lock but the one that the system takes for its tables.
LONG CALLBACK TranslateFault(EXCEPTION_POINTERS* pointers) {
    const DWORD code = pointers->ExceptionRecord->ExceptionCode;
    if (!IsFault(code)) return EXCEPTION_CONTINUE_SEARCH;
    const FaultTranslator translator = TranslatorOfThread();
    if (translator == nullptr) return EXCEPTION_CONTINUE_SEARCH;
    CONTEXT& context = *pointers->ContextRecord;
    SystemTables tables;
    FrameWalker walker(context, tables);
    for (unsigned int i = 0; i != kFramesToSearch; ++i) {
        const PEXCEPTION_ROUTINE handler = walker.Handler();
        if (handler == nullptr && walker.Step()) continue;
        // What becomes of the fault needs the heap, whose lock this thread may hold.
        if (handler == nullptr || !IsOfLanguage(handler) || HasListedHandler(walker.StackPointer()) ||
            StandsInAllocator(context, kFramesOfAllocator))
            return EXCEPTION_CONTINUE_SEARCH;
        LandInTranslator(context, walker.Context(), i == 0, code, translator);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

bool Install() {
    StayLoaded();  // the handler stays
    FindAllocatorCode();
    sHandlers[0] = BehindImport(reinterpret_cast<const void*>(&__gxx_personality_seh0));
    sHandlers[1] = BehindImport(reinterpret_cast<const void*>(&__gcc_personality_seh0));
    sSlot = TlsAlloc();
    return sSlot != TLS_OUT_OF_INDEXES && AddVectoredExceptionHandler(1, TranslateFault) != nullptr;
}

}  // namespace

void SetFaultTranslator(FaultTranslator translator) {
    static const bool sIsInstalled = Install();
    if (sIsInstalled) TlsSetValue(sSlot, reinterpret_cast<void*>(translator));
}

}  // namespace ZBase::os
