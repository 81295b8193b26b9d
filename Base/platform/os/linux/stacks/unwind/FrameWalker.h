#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/Registers.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>
#include <Base/platform/os/linux/stacks/unwind/UnwindTables.h>

namespace ZBase::os {

/// What a walk does about code that lies in no module.
class CodeOutsideModules {
public:
    /// The rules at `address`; false if there are none, or none can be had now.
    virtual bool Find(std::uint64_t address, FrameRules& rules) = 0;

protected:
    ~CodeOutsideModules() = default;
};

/// Walks by whole rules, with all registers, one frame at a time. Code without rules is taken to keep its
/// caller's frame pointer and the return address where its own frame pointer leads.
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

    /// Moves a context to this frame.
    void MoveContext(ThreadContext& context) const { MoveToCaller(mRegisters, context); }

    /// Where the function of this frame begins; 0 if it has no rules.
    std::uint64_t FunctionStart();

    /// The module of the frame that `Step` left; all zero if it was in none.
    const UnwindModule& Module() const { return mModule; }

    /// Whether the frame that `Step` left was a signal's.
    bool WasSignalFrame() const { return mWasSignalFrame; }

    /// Goes to the caller; false at the end of the stack and where the caller can't be found.
    bool Step();

private:
    bool Find(FrameRules& rules);
    bool StepByRules(const FrameRules& rules);
    bool StepByFramePointer();
    bool Caller(const FrameRules& rules, unsigned int number, std::uint64_t cfa, std::uint64_t& value) const;

    std::uint64_t mRegisters[kRegisters];
    WordReader mLoad;
    CodeOutsideModules* mpOutside;  // held, not owned; null if nothing is known of such code
    bool mIsReturnAddress = false;  // else the thread was stopped at the address itself
    bool mWasSignalFrame = false;
    UnwindModule mModule{};
};

}  // namespace ZBase::os
