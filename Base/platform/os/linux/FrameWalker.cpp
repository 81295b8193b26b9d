// One step of a walk by whole rules: all registers are followed, so that frames whose CFA hangs on any of
// them, and signal frames, where all were stored, are passed.

#include <sys/uio.h>
#include <unistd.h>
#include <cstring>

#include <Base/platform/os/linux/FrameRules.h>

namespace ZBase::os {

namespace {

constexpr unsigned int kStackDepth = 32;
constexpr unsigned int kOperations = 256;
constexpr std::uint64_t kLeastAddress = 1 << 16;
constexpr unsigned int kUserAddressBits = 47;

/// The stack machine of the rules' expressions.
class Machine {
public:
    Machine(const std::uint64_t* registers, const WordReader& load) : mpRegisters(registers), mLoad(load) {}

    void Push(std::uint64_t value) {
        if (mDepth < kStackDepth)
            mStack[mDepth++] = value;
        else
            mIsGood = false;
    }

    bool Evaluate(const Expression& expression, std::uint64_t& result) {
        mpNext = expression.start;
        for (unsigned int i = 0; mpNext < expression.end && i != kOperations; ++i) {
            if (!Operate(*mpNext++) || !mIsGood) return false;
        }
        result = Pop();
        return mIsGood && mpNext >= expression.end;
    }

private:
    std::uint64_t Pop() {
        if (mDepth == 0) {
            mIsGood = false;
            return 0;
        }
        return mStack[--mDepth];
    }

    template <class T>
    std::uint64_t Constant() {
        T value;
        std::memcpy(&value, mpNext, sizeof value);
        mpNext += sizeof value;
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    }

    std::uint64_t Variable(bool isSigned) {
        std::uint64_t value = 0;
        unsigned int shift = 0;
        std::uint8_t octet = 0;
        do {
            octet = *mpNext++;
            value |= static_cast<std::uint64_t>(octet & 0x7F) << shift;
            shift += 7;
        } while (octet >= 0x80 && shift < 64);
        if (isSigned && (octet & 0x40) != 0 && shift < 64) value |= ~std::uint64_t{0} << shift;
        return value;
    }

    bool Operate(std::uint8_t operation) {
        if (operation >= 0x30 && operation <= 0x4F)
            Push(operation - 0x30U);                        // lit
        else if (operation >= 0x70 && operation <= 0x8F) {  // breg
            const unsigned int number = operation - 0x70U;
            if (number >= kRegisters) return false;
            Push(mpRegisters[number] + Variable(true));
        } else if (operation >= 0x08 && operation <= 0x11)
            PushConstant(operation);
        else if (operation >= 0x19 && operation <= 0x2E)
            return Calculate(operation);
        else
            return Arrange(operation);
        return true;
    }

    void PushConstant(std::uint8_t operation) {
        switch (operation) {
            case 0x08:
                Push(Constant<std::uint8_t>());
                break;
            case 0x09:
                Push(Constant<std::int8_t>());
                break;
            case 0x0A:
                Push(Constant<std::uint16_t>());
                break;
            case 0x0B:
                Push(Constant<std::int16_t>());
                break;
            case 0x0C:
                Push(Constant<std::uint32_t>());
                break;
            case 0x0D:
                Push(Constant<std::int32_t>());
                break;
            case 0x10:
                Push(Variable(false));
                break;
            case 0x11:
                Push(Variable(true));
                break;
            default:
                Push(Constant<std::uint64_t>());
        }
    }

    bool Arrange(std::uint8_t operation) {
        switch (operation) {
            case 0x06: {  // deref
                std::uint64_t value = 0;
                if (!mLoad(Pop(), value)) return false;
                Push(value);
                return true;
            }
            case 0x12:
                Push(Peek(0));
                return true;  // dup
            case 0x13:
                Pop();
                return true;  // drop
            case 0x14:
                Push(Peek(1));
                return true;  // over
            case 0x15:
                Push(Peek(*mpNext++));
                return true;  // pick
            case 0x16: {      // swap
                const std::uint64_t first = Pop();
                const std::uint64_t second = Pop();
                Push(first);
                Push(second);
                return true;
            }
            case 0x2F: {  // skip
                const auto distance = static_cast<std::int64_t>(Constant<std::int16_t>());
                mpNext += distance;
                return true;
            }
            case 0x96:
                return true;  // nop
            default:
                return false;
        }
    }

    std::uint64_t Peek(unsigned int index) {
        if (index < mDepth) return mStack[mDepth - 1 - index];
        mIsGood = false;
        return 0;
    }

    bool Calculate(std::uint8_t operation) {
        if (operation == 0x28) {  // bra
            const auto distance = static_cast<std::int64_t>(Constant<std::int16_t>());
            if (Pop() != 0) mpNext += distance;
            return true;
        }
        if (operation == 0x23) {  // plus_uconst
            const std::uint64_t added = Variable(false);
            Push(Pop() + added);
            return true;
        }
        const std::uint64_t top = Pop();
        const auto signedTop = static_cast<std::int64_t>(top);
        if (operation == 0x19)
            Push(signedTop < 0 ? 0 - top : top);
        else if (operation == 0x1F)
            Push(0 - top);
        else if (operation == 0x20)
            Push(~top);
        else
            return Combine(operation, Pop(), top);
        return true;
    }

    bool Combine(std::uint8_t operation, std::uint64_t left, std::uint64_t right) {
        const auto signedLeft = static_cast<std::int64_t>(left);
        const auto signedRight = static_cast<std::int64_t>(right);
        switch (operation) {
            case 0x1A:
                Push(left & right);
                return true;
            case 0x1C:
                Push(left - right);
                return true;
            case 0x1E:
                Push(left * right);
                return true;
            case 0x21:
                Push(left | right);
                return true;
            case 0x22:
                Push(left + right);
                return true;
            case 0x24:
                Push(right < 64 ? left << right : 0);
                return true;
            case 0x25:
                Push(right < 64 ? left >> right : 0);
                return true;
            case 0x26:
                Push(static_cast<std::uint64_t>(signedLeft >> (right < 63 ? right : 63)));
                return true;
            case 0x27:
                Push(left ^ right);
                return true;
            case 0x29:
                Push(left == right);
                return true;
            case 0x2A:
                Push(signedLeft >= signedRight);
                return true;
            case 0x2B:
                Push(signedLeft > signedRight);
                return true;
            case 0x2C:
                Push(signedLeft <= signedRight);
                return true;
            case 0x2D:
                Push(signedLeft < signedRight);
                return true;
            case 0x2E:
                Push(left != right);
                return true;
            default:
                return false;  // a division, which no table needs
        }
    }

    const std::uint64_t* mpRegisters;
    const WordReader& mLoad;
    const std::uint8_t* mpNext = nullptr;
    std::uint64_t mStack[kStackDepth];
    unsigned int mDepth = 0;
    bool mIsGood = true;
};

}  // namespace

bool LoadForeignWord(void*, std::uint64_t address, std::uint64_t& value) {
    const iovec to{&value, sizeof value};
    const iovec from{reinterpret_cast<void*>(address), sizeof value};
    return process_vm_readv(getpid(), &to, 1, &from, 1, 0) == static_cast<ssize_t>(sizeof value);
}

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
            value = number == kRsp && !rules.isSignalFrame ? cfa : mRegisters[number];
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
    Machine machine(mRegisters, mLoad);
    machine.Push(cfa);
    if (!machine.Evaluate(ExpressionAt(rule), value)) return false;
    return rules.kinds[number] == RuleKind::Computed || mLoad(value, value);
}

bool FrameWalker::Step() {
    FrameRules rules;
    return Find(rules) ? StepByRules(rules) : StepByFramePointer();
}

bool FrameWalker::StepByRules(const FrameRules& rules) {
    std::uint64_t cfa = 0;
    if (rules.cfaIsExpression) {
        if (!Machine(mRegisters, mLoad).Evaluate(ExpressionAt(rules.cfaOffset), cfa)) return false;
    } else {
        if (rules.cfaRegister >= kRegisters) return false;
        cfa = mRegisters[rules.cfaRegister] + static_cast<std::uint64_t>(rules.cfaOffset);
    }
    // The stack grows downwards; only a signal may come on another stack.
    if (!rules.isSignalFrame && cfa <= mRegisters[kRsp]) return false;
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

// Where there are no rules this is a guess, which is given up as soon as it does not lead upwards into code.
bool FrameWalker::StepByFramePointer() {
    constexpr std::uint64_t kLargestFrame = std::uint64_t{1} << 30;
    const std::uint64_t place = mRegisters[kRbp];
    const std::uint64_t below = mRegisters[kRsp];
    std::uint64_t framePointer = 0;
    std::uint64_t address = 0;
    if (place < below || place - below > kLargestFrame || place % 8 != 0) return false;
    if (!mLoad(place, framePointer) || !mLoad(place + 8, address)) return false;
    if (address < kLeastAddress || (address >= below && address - below < kLargestFrame) ||
        address >> kUserAddressBits != 0)
        return false;
    // A module's tables go on from here. Code of no module may well have called too, never what lies on the
    // stack itself, and then its frame pointer leads further up.
    UnwindModule module;
    if (!FindUnwindModule(address - 1, module) && framePointer <= place) return false;
    mRegisters[kRbp] = framePointer;
    mRegisters[kRsp] = place + 16;
    mRegisters[kReturnAddress] = address;
    mIsReturnAddress = true;
    mWasSignalFrame = false;
    return true;
}

}  // namespace ZBase::os
