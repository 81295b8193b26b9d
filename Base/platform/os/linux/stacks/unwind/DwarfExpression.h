#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/unwind/DwarfReader.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

namespace ZBase::os {

/// The expression at a place of the tables, where its length stands first.
Expression ExpressionAt(std::int64_t place);

/// What an expression gives for these registers (`kRegisters` of them, as the tables number them), with
/// `first` on its stack if that is not null. False if it takes too much, reads memory that is not there or is
/// wrong. No heap, no lock.
bool Evaluate(const Expression& expression, const std::uint64_t* registers, const std::uint64_t* first,
              const WordReader& load, std::uint64_t& result);

}  // namespace ZBase::os
