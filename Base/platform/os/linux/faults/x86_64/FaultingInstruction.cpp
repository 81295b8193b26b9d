#include <Base/platform/os/linux/faults/FaultingInstruction.h>
#include <Base/platform/os/linux/memory/OwnMemory.h>
#include <Base/platform/os/linux/stacks/Registers.h>

#include <dlfcn.h>
#include <cstdint>
#include <cstring>

namespace ZBase::os {

namespace {

constexpr std::size_t kLongestInstruction = 15;
constexpr greg_t kPageFault = 14;
constexpr greg_t kInstructionFetch = 0x10;  // in the error code of a page fault
constexpr int kNames[] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                          REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

/// The faulting instruction: prefixes, opcode and operand.
class Instruction {
public:
    explicit Instruction(const ucontext_t& context)
        : mRegisters(context.uc_mcontext.gregs),
          mStart(Register(REG_RIP)),
          mLength(CopyOwnMemory(mStart, mOctets, sizeof mOctets)) {
        while (TakePrefix()) {
        }
        mOpcode = Next();
    }

    bool IsPrivileged() {
        switch (mOpcode) {
            case 0x6C ... 0x6F:  // ins, outs
            case 0xE4 ... 0xE7:  // in, out
            case 0xEC ... 0xEF:
            case 0xF4:  // hlt
            case 0xFA:  // cli
            case 0xFB:  // sti
                return true;
            case 0x0F:
                return IsPrivilegedOfTwoOctets();
            default:
                return false;
        }
    }

    // Whether it is a division with a readable divisor that is not zero.
    bool DividesByOtherThanZero() {
        if (mOpcode != 0xF6 && mOpcode != 0xF7) return false;
        const unsigned int form = Next();
        if ((form & 0x30) != 0x30) return false;  // div and idiv
        const std::size_t width = mOpcode == 0xF6 ? 1 : (mExtension & 8) != 0 ? 8 : mIsShort ? 2 : 4;
        std::uint64_t divisor = 0;
        if (form >= 0xC0) {
            unsigned int number = form & 7;
            // Without REX the numbers 4 to 7 mean ah, ch, dh and bh.
            const bool isSecondOctet = width == 1 && mExtension == 0 && number >= 4;
            number = isSecondOctet ? number - 4 : number | Extended(0);
            const std::uint64_t value = Register(kNames[number]) >> (isSecondOctet ? 8 : 0);
            std::memcpy(&divisor, &value, width);
            return divisor != 0;
        }
        std::uint64_t address = 0;
        return Address(form, address) && CopyOwnMemory(address, &divisor, width) == width && divisor != 0;
    }

private:
    std::uint64_t Register(int name) const { return static_cast<std::uint64_t>(mRegisters[name]); }

    // The fourth bit of a register number, from its bit in REX.
    unsigned int Extended(unsigned int bit) const { return (mExtension >> bit & 1) << 3; }

    // The next octet; 0 after the last one.
    unsigned int Next() { return mAt < mLength ? mOctets[mAt++] : 0; }

    bool TakePrefix() {
        if (mAt == mLength || mExtension != 0) return false;
        const unsigned int octet = mOctets[mAt];
        switch (octet) {
            case 0x26:
            case 0x2E:
            case 0x36:
            case 0x3E:
            case 0xF0:
            case 0xF2:
            case 0xF3:
                break;
            case 0x64:
            case 0x65:
                mSegment = octet;
                break;
            case 0x66:
                mIsShort = true;
                break;
            case 0x67:
                mHasShortAddress = true;
                break;
            case 0x40 ... 0x4F:
                mExtension = octet;
                break;
            default:
                return false;
        }
        ++mAt;
        return true;
    }

    bool IsPrivilegedOfTwoOctets() {
        const unsigned int opcode = Next();
        const unsigned int form = Next();
        const unsigned int operation = form >> 3 & 7;
        switch (opcode) {
            case 0x00:  // lldt, ltr
                return operation == 2 || operation == 3;
            case 0x01:  // lgdt, lidt, lmsw, invlpg; xsetbv, swapgs
                if (form >= 0xC0) return form == 0xD1 || form == 0xF8 || operation == 6;
                return operation == 2 || operation == 3 || operation >= 6;
            case 0x06 ... 0x09:  // clts, sysret, invd, wbinvd
            case 0x20 ... 0x23:  // control and debug registers
            case 0x30:           // wrmsr
            case 0x32:           // rdmsr
            case 0x33:           // rdpmc
            case 0x35:           // sysexit
                return true;
            default:
                return false;
        }
    }

    std::uint64_t Displacement(unsigned int size) {
        std::uint32_t value = 0;
        for (unsigned int i = 0; i != size; ++i) value |= Next() << (8 * i);
        if (size == 1) return static_cast<std::uint64_t>(static_cast<std::int8_t>(value));
        return static_cast<std::uint64_t>(static_cast<std::int32_t>(value));
    }

    // The address of a memory operand; false if it is relative to an unknown segment base.
    bool Address(unsigned int form, std::uint64_t& address) {
        const unsigned int mode = form >> 6;
        unsigned int base = form & 7;
        bool hasBase = true;
        if (base == 4) {
            const unsigned int scaled = Next();
            base = scaled & 7;
            hasBase = base != 5 || mode != 0;
            const unsigned int index = (scaled >> 3 & 7) | Extended(1);
            if (index != 4) address = Register(kNames[index]) << (scaled >> 6);
        } else if (base == 5 && mode == 0) {
            hasBase = false;
            address = mStart + mAt + 4;  // rip-relative: no immediate follows the displacement
        }
        if (hasBase) address += Register(kNames[base | Extended(0)]);
        address += Displacement(mode == 1 ? 1 : mode == 2 || !hasBase ? 4 : 0);
        if (mHasShortAddress) address &= 0xFFFFFFFF;
        if (mSegment == 0x64) {
            address += ThreadPointer();
        }
        return mSegment != 0x65;
    }

    const greg_t* mRegisters;
    std::uint64_t mStart;
    unsigned char mOctets[kLongestInstruction] = {};
    std::size_t mLength;
    std::size_t mAt = 0;
    unsigned int mExtension = 0;  // REX
    unsigned int mSegment = 0;    // the fs or gs prefix
    bool mIsShort = false;
    bool mHasShortAddress = false;
    unsigned int mOpcode = 0;
};

}  // namespace

bool IsDivisionOverflow(const ucontext_t& context) {
    return Instruction(context).DividesByOtherThanZero();
}

bool IsPrivilegedInstruction(const ucontext_t& context) {
    return Instruction(context).IsPrivileged();
}

bool ReturnFromCallToNowhere(ucontext_t& context) {
    greg_t* const registers = context.uc_mcontext.gregs;
    if (registers[REG_TRAPNO] != kPageFault || (registers[REG_ERR] & kInstructionFetch) == 0) return true;
    std::uint64_t caller = 0;
    const auto stack = static_cast<std::uint64_t>(registers[REG_RSP]);
    dl_find_object module;
    if (CopyOwnMemory(stack, &caller, sizeof caller) != sizeof caller ||
        _dl_find_object(reinterpret_cast<void*>(caller - 1), &module) != 0) {
        return false;
    }
    // Inside the call instruction: after it other landing pads may apply.
    registers[REG_RIP] = static_cast<greg_t>(caller - 1);
    registers[REG_RSP] += static_cast<greg_t>(sizeof caller);
    return true;
}

}  // namespace ZBase::os
