#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/unwind/DwarfReader.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

namespace ZBase::os {

/// The expression at `place` in the tables, which begins with its length.
Expression ExpressionAt(std::int64_t place);

/// The value of an expression for these registers (`kRegisters` of them, by DWARF number), with `first` on
/// its stack if that is not null. False if it takes too many steps, reads unreadable memory or is invalid. No
/// heap, no lock.
bool Evaluate(const Expression& expression, const std::uint64_t* registers, const std::uint64_t* first,
              const WordReader& load, std::uint64_t& result);

}  // namespace ZBase::os
