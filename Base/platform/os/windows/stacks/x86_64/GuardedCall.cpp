// The compiler knows no guarded regions of the system, but its assembler does: a frame of these few lines has
// a handler of its own, which unwinds to the frame's end.

#include <Base/platform/os/windows/stacks/GuardedCall.h>

#include <windows.h>

asm(R"(
    .text
    .p2align 4
    .globl ZBaseCallGuarded
    .def ZBaseCallGuarded; .scl 2; .type 32; .endef
    .seh_proc ZBaseCallGuarded
ZBaseCallGuarded:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    movl $1, %eax
    .globl ZBaseLeaveGuarded
ZBaseLeaveGuarded:
    nop
    addq $40, %rsp
    ret
    .seh_handler ZBaseEndGuarded, @except
    .seh_endproc
)");

extern "C" {

int ZBaseCallGuarded(void (*function)(void*), void* argument);
extern const char ZBaseLeaveGuarded[];

EXCEPTION_DISPOSITION ZBaseEndGuarded(EXCEPTION_RECORD* record, void* frame, CONTEXT*,
                                      DISPATCHER_CONTEXT* dispatcher) {
    const bool isOfMemory = record->ExceptionCode == static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION) ||
                            record->ExceptionCode == static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR) ||
                            record->ExceptionCode == static_cast<DWORD>(EXCEPTION_GUARD_PAGE);
    constexpr DWORD kUnwinding = 0x66;  // whatever for
    if (!isOfMemory || (record->ExceptionFlags & kUnwinding) != 0) return ExceptionContinueSearch;
    RtlUnwindEx(frame, const_cast<char*>(ZBaseLeaveGuarded), record, nullptr, dispatcher->ContextRecord,
                dispatcher->HistoryTable);
    return ExceptionContinueSearch;
}

}  // extern "C"

namespace ZBase::os {

bool CallGuarded(void (*function)(void* argument), void* argument) {
    return ZBaseCallGuarded(function, argument) != 0;
}

}  // namespace ZBase::os
