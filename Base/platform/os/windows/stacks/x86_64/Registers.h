#pragma once

#include <windows.h>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

static_assert(sizeof(ThreadContext) == sizeof(CONTEXT));
static_assert(offsetof(ThreadContext, contextFlags) == offsetof(CONTEXT, ContextFlags));
static_assert(offsetof(ThreadContext, rdi) == offsetof(CONTEXT, Rdi));
static_assert(offsetof(ThreadContext, rip) == offsetof(CONTEXT, Rip));
static_assert(kFullContext == CONTEXT_FULL);

inline CONTEXT ToNative(const ThreadContext& context) {
    CONTEXT native;
    std::memcpy(&native, &context, sizeof native);
    return native;
}

inline std::uint64_t Instruction(const CONTEXT& context) {
    return context.Rip;
}

inline std::uint64_t StackPointer(const CONTEXT& context) {
    return context.Rsp;
}

/// Moves to the caller of a function that keeps no frame: its return address is the word at the stack
/// pointer.
inline void LeaveLeaf(CONTEXT& context) {
    context.Rip = *reinterpret_cast<const std::uint64_t*>(context.Rsp);
    context.Rsp += sizeof context.Rip;
}

/// The innermost handler in the list that the thread keeps of its own; 0 or all bits if there is none.
inline std::uint64_t InnermostListedHandler() {
    static_assert(offsetof(NT_TIB, ExceptionList) == 0);
    std::uint64_t handler = 0;
    asm volatile("movq %%gs:0, %0" : "=r"(handler));
    return handler;
}

}  // namespace ZBase::os
