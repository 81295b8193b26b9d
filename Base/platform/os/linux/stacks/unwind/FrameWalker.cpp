// Slow path: restores every register, so it handles any CFA register and signal frames.

#include <Base/platform/os/linux/stacks/unwind/DwarfExpression.h>
#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

#include <cstring>

namespace ZBase::os {

std::uint64_t FrameWalker::FunctionStart() {
    FrameRules rules;
    return Find(rules) ? rules.functionStart : 0;
}

bool FrameWalker::Find(FrameRules& rules) {
    const std::uint64_t address = Address() - (mIsReturnAddress ? 1 : 0);
    if (address - mModule.start >= mModule.end - mModule.start && !FindUnwindModule(address, mModule)) {
        mModule = {};
        return mpOutside != nullptr && mpOutside->Find(address, rules);
    }
    return FindFrameRules(mModule, address, rules);
}

bool FrameWalker::Caller(const FrameRules& rules, unsigned int number, std::uint64_t cfa,
                         std::uint64_t& value) const {
    const std::int64_t rule = rules.values[number];
    switch (rules.kinds[number]) {
        case RuleKind::Same:
            value = number == kStackPointer && !rules.isSignalFrame ? cfa : mRegisters[number];
            return number != kReturnAddress;
        case RuleKind::Undefined:
            value = 0;
            return number != kReturnAddress;
        case RuleKind::Stored:
            return mLoad(cfa + static_cast<std::uint64_t>(rule), value);
        case RuleKind::Offset:
            value = cfa + static_cast<std::uint64_t>(rule);
            return true;
        case RuleKind::Register:
            value = rule < kRegisters ? mRegisters[rule] : 0;
            return true;
        default:
            break;
    }
    if (!Evaluate(ExpressionAt(rule), mRegisters, &cfa, mLoad, value)) return false;
    return rules.kinds[number] == RuleKind::Computed || mLoad(value, value);
}

bool FrameWalker::Step() {
    FrameRules rules;
    return Find(rules) ? StepByRules(rules) : StepByFramePointer();
}

bool FrameWalker::StepByRules(const FrameRules& rules) {
    std::uint64_t cfa = 0;
    if (rules.cfaIsExpression) {
        if (!Evaluate(ExpressionAt(rules.cfaOffset), mRegisters, nullptr, mLoad, cfa)) return false;
    } else {
        if (rules.cfaRegister >= kRegisters) return false;
        cfa = mRegisters[rules.cfaRegister] + static_cast<std::uint64_t>(rules.cfaOffset);
    }
    // The stack grows downwards; only a signal frame may be on another stack.
    if (!rules.isSignalFrame && cfa <= mRegisters[kStackPointer]) return false;
    std::uint64_t callers[kRegisters];
    for (unsigned int number = 0; number != kRegisters; ++number) {
        if (!Caller(rules, number, cfa, callers[number])) return false;
    }
    if (callers[kReturnAddress] == 0) return false;
    std::memcpy(mRegisters, callers, sizeof mRegisters);
    mIsReturnAddress = !rules.isSignalFrame;
    mWasSignalFrame = rules.isSignalFrame;
    return true;
}

// Without rules this is a guess, dropped once it does not lead up the stack and into code.
bool FrameWalker::StepByFramePointer() {
    constexpr std::uint64_t kLargestFrame = std::uint64_t{1} << 30;
    const std::uint64_t place = mRegisters[kFramePointer];
    const std::uint64_t below = mRegisters[kStackPointer];
    std::uint64_t framePointer = 0;
    std::uint64_t address = 0;
    if (place < below || place - below > kLargestFrame || place % 8 != 0) return false;
    if (!mLoad(place, framePointer) || !mLoad(place + 8, address)) return false;
    if (address < kLeastAddress || (address >= below && address - below < kLargestFrame) ||
        address >> kUserAddressBits != 0)
        return false;
    // Code of a module is walked by its tables from here. Code outside of modules may be a caller too, but
    // not an address on the stack itself, and its frame pointer must lead further up.
    UnwindModule module;
    if (!FindUnwindModule(address - 1, module) && framePointer <= place) return false;
    mRegisters[kFramePointer] = framePointer;
    mRegisters[kStackPointer] = place + 16;
    mRegisters[kReturnAddress] = address;
    mIsReturnAddress = true;
    mWasSignalFrame = false;
    return true;
}

}  // namespace ZBase::os
