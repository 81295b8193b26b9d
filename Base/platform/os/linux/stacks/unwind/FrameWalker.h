#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/Registers.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>
#include <Base/platform/os/linux/stacks/unwind/UnwindTables.h>

namespace ZBase::os {

/// Rules for code outside of modules, for a walk.
class CodeOutsideModules {
public:
    /// The rules at `address`; false if there are none, or they can't be read now.
    virtual bool Find(std::uint64_t address, FrameRules& rules) = 0;

protected:
    ~CodeOutsideModules() = default;
};

/// Walks by full rules, with all registers, one frame at a time. Code without rules is assumed to have a
/// frame pointer: the caller's = *frame pointer, and the return address follows it.
class FrameWalker {
public:
    /// From a `ThreadContext`, or from `GeneralRegisters` alone.
    template <class State>
    FrameWalker(const State& from, WordReader load, CodeOutsideModules* outside)
        : mLoad(load), mpOutside(outside) {
        NumberRegisters(from, mRegisters);
    }

    std::uint64_t Address() const { return mRegisters[kReturnAddress]; }
    std::uint64_t StackPointer() const { return mRegisters[kStackPointer]; }

    /// Sets a context to this frame.
    void MoveContext(ThreadContext& context) const { MoveToCaller(mRegisters, context); }

    /// The start of this frame's function; 0 without rules.
    std::uint64_t FunctionStart();

    /// The module of the frame before the last `Step`; all zero outside of modules.
    const UnwindModule& Module() const { return mModule; }

    /// Whether the frame before the last `Step` was a signal frame.
    bool WasSignalFrame() const { return mWasSignalFrame; }

    /// Goes to the caller; false at the end of the stack or if there is no valid caller.
    bool Step();

private:
    bool Find(FrameRules& rules);
    bool StepByRules(const FrameRules& rules);
    bool StepByFramePointer();
    bool Caller(const FrameRules& rules, unsigned int number, std::uint64_t cfa, std::uint64_t& value) const;

    std::uint64_t mRegisters[kRegisters];
    WordReader mLoad;
    CodeOutsideModules* mpOutside;  // held, not owned; null for no rules
    bool mIsReturnAddress = false;  // else the thread was stopped at this very address
    bool mWasSignalFrame = false;
    UnwindModule mModule{};
};

}  // namespace ZBase::os
