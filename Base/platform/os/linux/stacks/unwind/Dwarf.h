#pragma once

#include <cstdint>

// Constants of the DWARF format, of its call frame information in .eh_frame. The names are the format's own,
// without the prefixes DW_CFA_, DW_OP_ and DW_EH_PE_.

namespace ZBase::os::dwarf {

/// Operations of a frame description. The first three have an operand in their lowest six bits.
namespace cfa {
enum Operation : std::uint8_t {
    AdvanceLoc = 0x40,
    Offset = 0x80,
    Restore = 0xC0,
    Nop = 0x00,
    SetLoc = 0x01,
    AdvanceLoc1 = 0x02,
    AdvanceLoc2 = 0x03,
    AdvanceLoc4 = 0x04,
    OffsetExtended = 0x05,
    RestoreExtended = 0x06,
    Undefined = 0x07,
    SameValue = 0x08,
    Register = 0x09,
    RememberState = 0x0A,
    RestoreState = 0x0B,
    DefCfa = 0x0C,
    DefCfaRegister = 0x0D,
    DefCfaOffset = 0x0E,
    DefCfaExpression = 0x0F,
    Expression = 0x10,
    OffsetExtendedSf = 0x11,
    DefCfaSf = 0x12,
    DefCfaOffsetSf = 0x13,
    ValOffset = 0x14,
    ValOffsetSf = 0x15,
    ValExpression = 0x16,
    GnuArgsSize = 0x2E,
    GnuNegativeOffsetExtended = 0x2F,
};
inline constexpr std::uint8_t kOperand = 0x3F;
}  // namespace cfa

/// Operations of an expression.
namespace op {
enum Operation : std::uint8_t {
    Deref = 0x06,
    Const1u = 0x08,
    Const1s = 0x09,
    Const2u = 0x0A,
    Const2s = 0x0B,
    Const4u = 0x0C,
    Const4s = 0x0D,
    Const8u = 0x0E,
    Const8s = 0x0F,
    Constu = 0x10,
    Consts = 0x11,
    Dup = 0x12,
    Drop = 0x13,
    Over = 0x14,
    Pick = 0x15,
    Swap = 0x16,
    Abs = 0x19,
    And = 0x1A,
    Minus = 0x1C,
    Mul = 0x1E,
    Neg = 0x1F,
    Not = 0x20,
    Or = 0x21,
    Plus = 0x22,
    PlusUconst = 0x23,
    Shl = 0x24,
    Shr = 0x25,
    Shra = 0x26,
    Xor = 0x27,
    Bra = 0x28,
    Eq = 0x29,
    Ge = 0x2A,
    Gt = 0x2B,
    Le = 0x2C,
    Lt = 0x2D,
    Ne = 0x2E,
    Skip = 0x2F,
    Lit0 = 0x30,
    Lit31 = 0x4F,
    Breg0 = 0x70,
    Breg31 = 0x8F,
    Nop = 0x96,
};
}  // namespace op

/// Encoding of a pointer: its form in the lowest four bits, and its base.
namespace pointer {
enum Encoding : std::uint8_t {
    Absptr = 0x00,
    Udata2 = 0x02,
    Udata4 = 0x03,
    Udata8 = 0x04,
    Sdata2 = 0x0A,
    Sdata4 = 0x0B,
    Sdata8 = 0x0C,
    Pcrel = 0x10,
    Datarel = 0x30,
    Indirect = 0x80,
};
inline constexpr std::uint8_t kForm = 0x0F;
inline constexpr std::uint8_t kRelation = 0x70;
}  // namespace pointer

/// The length that announces a 64-bit one.
inline constexpr std::uint32_t kLongForm = 0xFFFFFFFF;

}  // namespace ZBase::os::dwarf
