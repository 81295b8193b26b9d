#include <Base/platform/os/linux/stacks/unwind/DwarfExpression.h>

#include <Base/platform/os/linux/stacks/Registers.h>

namespace ZBase::os {

namespace {

namespace op = dwarf::op;

constexpr unsigned int kStackDepth = 32;
constexpr unsigned int kOperations = 256;

/// The stack machine that runs an expression.
class Machine {
public:
    Machine(const Expression& expression, const std::uint64_t* registers, const WordReader& load)
        : mpRegisters(registers), mLoad(load), mReader(expression.start, expression.end) {}

    void Push(std::uint64_t value) {
        if (mDepth < kStackDepth)
            mStack[mDepth++] = value;
        else
            mIsGood = false;
    }

    bool Run(std::uint64_t& result) {
        for (unsigned int i = 0; !mReader.AtEnd() && i != kOperations; ++i) {
            if (!Operate(mReader.Fixed<std::uint8_t>()) || !mIsGood) return false;
        }
        result = Pop();
        return mIsGood && mReader.AtEnd();
    }

private:
    std::uint64_t Pop() {
        if (mDepth == 0) {
            mIsGood = false;
            return 0;
        }
        return mStack[--mDepth];
    }

    std::uint64_t Peek(unsigned int index) {
        if (index < mDepth) return mStack[mDepth - 1 - index];
        mIsGood = false;
        return 0;
    }

    template <class T>
    std::uint64_t Constant() {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(mReader.Fixed<T>()));
    }

    bool Operate(std::uint8_t operation) {
        if (operation >= op::Lit0 && operation <= op::Lit31) {
            Push(operation - std::uint64_t{op::Lit0});
        } else if (operation >= op::Breg0 && operation <= op::Breg31) {
            const unsigned int number = operation - unsigned{op::Breg0};
            if (number >= kRegisters) return false;
            Push(mpRegisters[number] + static_cast<std::uint64_t>(mReader.Signed()));
        } else if (operation >= op::Const1u && operation <= op::Consts) {
            PushConstant(operation);
        } else if (operation >= op::Abs && operation <= op::Ne) {
            return Calculate(operation);
        } else {
            return Arrange(operation);
        }
        return true;
    }

    void PushConstant(std::uint8_t operation) {
        switch (operation) {
            case op::Const1u:
                return Push(Constant<std::uint8_t>());
            case op::Const1s:
                return Push(Constant<std::int8_t>());
            case op::Const2u:
                return Push(Constant<std::uint16_t>());
            case op::Const2s:
                return Push(Constant<std::int16_t>());
            case op::Const4u:
                return Push(Constant<std::uint32_t>());
            case op::Const4s:
                return Push(Constant<std::int32_t>());
            case op::Constu:
                return Push(mReader.Unsigned());
            case op::Consts:
                return Push(static_cast<std::uint64_t>(mReader.Signed()));
            default:  // Const8u, Const8s
                return Push(Constant<std::uint64_t>());
        }
    }

    bool Arrange(std::uint8_t operation) {
        switch (operation) {
            case op::Deref: {
                std::uint64_t value = 0;
                if (!mLoad(Pop(), value)) return false;
                Push(value);
                return true;
            }
            case op::Dup:
                Push(Peek(0));
                return true;
            case op::Drop:
                Pop();
                return true;
            case op::Over:
                Push(Peek(1));
                return true;
            case op::Pick:
                Push(Peek(mReader.Fixed<std::uint8_t>()));
                return true;
            case op::Swap: {
                const std::uint64_t first = Pop();
                const std::uint64_t second = Pop();
                Push(first);
                Push(second);
                return true;
            }
            case op::Skip:
                mReader.Move(mReader.Fixed<std::int16_t>());
                return true;
            case op::Nop:
                return true;
            default:
                return false;
        }
    }

    bool Calculate(std::uint8_t operation) {
        if (operation == op::Bra) {
            const auto distance = mReader.Fixed<std::int16_t>();
            if (Pop() != 0) mReader.Move(distance);
            return true;
        }
        if (operation == op::PlusUconst) {
            const std::uint64_t added = mReader.Unsigned();
            Push(Pop() + added);
            return true;
        }
        const std::uint64_t top = Pop();
        if (operation == op::Abs)
            Push(static_cast<std::int64_t>(top) < 0 ? 0 - top : top);
        else if (operation == op::Neg)
            Push(0 - top);
        else if (operation == op::Not)
            Push(~top);
        else
            return Combine(operation, Pop(), top);
        return true;
    }

    bool Combine(std::uint8_t operation, std::uint64_t left, std::uint64_t right) {
        const auto signedLeft = static_cast<std::int64_t>(left);
        const auto signedRight = static_cast<std::int64_t>(right);
        switch (operation) {
            case op::And:
                Push(left & right);
                return true;
            case op::Minus:
                Push(left - right);
                return true;
            case op::Mul:
                Push(left * right);
                return true;
            case op::Or:
                Push(left | right);
                return true;
            case op::Plus:
                Push(left + right);
                return true;
            case op::Shl:
                Push(right < 64 ? left << right : 0);
                return true;
            case op::Shr:
                Push(right < 64 ? left >> right : 0);
                return true;
            case op::Shra:
                Push(static_cast<std::uint64_t>(signedLeft >> (right < 63 ? right : 63)));
                return true;
            case op::Xor:
                Push(left ^ right);
                return true;
            case op::Eq:
                Push(left == right);
                return true;
            case op::Ge:
                Push(signedLeft >= signedRight);
                return true;
            case op::Gt:
                Push(signedLeft > signedRight);
                return true;
            case op::Le:
                Push(signedLeft <= signedRight);
                return true;
            case op::Lt:
                Push(signedLeft < signedRight);
                return true;
            case op::Ne:
                Push(left != right);
                return true;
            default:
                return false;  // a division, which no compiler uses here
        }
    }

    const std::uint64_t* mpRegisters;
    const WordReader& mLoad;
    DwarfReader mReader;
    std::uint64_t mStack[kStackDepth];
    unsigned int mDepth = 0;
    bool mIsGood = true;
};

}  // namespace

Expression ExpressionAt(std::int64_t place) {
    return DwarfReader(reinterpret_cast<const std::uint8_t*>(place), nullptr).Block();
}

bool Evaluate(const Expression& expression, const std::uint64_t* registers, const std::uint64_t* first,
              const WordReader& load, std::uint64_t& result) {
    Machine machine(expression, registers, load);
    if (first != nullptr) machine.Push(*first);
    return machine.Run(result);
}

}  // namespace ZBase::os
