#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/Registers.h>

namespace ZBase::os {

// Unwind tables (.eh_frame with its search table) of the loaded modules, read where they are mapped. Nothing
// here allocates, locks or calls the system, so all of it is good inside a signal handler.

enum class RuleKind : std::uint8_t {
    Same,       // the caller's value is the callee's
    Undefined,  // lost; for the return address: there is no caller
    Stored,     // at the CFA plus `value`
    Offset,     // the CFA plus `value`
    Register,   // in register `value`
    StoredAt,   // at the address that the expression at `value` gives
    Computed,   // what the expression at `value` gives
};

/// How the registers of a function's caller follow from its own, at one place in it. The CFA is the value of
/// the stack pointer before the call. It is small, since several of them lie on a stack that may be a
/// signal's.
struct FrameRules {
    bool cfaIsExpression;
    bool isSignalFrame;
    RuleKind kinds[kRegisters];
    std::int64_t values[kRegisters];
    std::uint64_t cfaRegister;
    std::int64_t cfaOffset;  // or where its expression is
    std::uint64_t functionStart;
    std::uint64_t functionEnd;
};

/// A module as the tables need it.
struct UnwindModule {
    std::uint64_t start;
    std::uint64_t end;
    const std::uint8_t* searchTable;
    std::uint64_t identity;  // differs between modules that are loaded to one place in turn; 0 if unknown
};

/// The module that holds `address`; false if none does.
bool FindUnwindModule(std::uint64_t address, UnwindModule& module);

/// The rules at `address`, which lies in `module`; false if there are none.
bool FindFrameRules(const UnwindModule& module, std::uint64_t address, FrameRules& rules);

inline constexpr std::uint32_t kNoIndex = ~std::uint32_t{0};

/// A hash of what the rules at `address` follow from, which no other module in the same place shares unless
/// its rules are the same; 0 if there are none. `index` is where the table of the module has them, or
/// `kNoIndex`, and then they are looked for.
std::uint64_t FindDescriptionHash(const UnwindModule& module, std::uint64_t address, std::uint32_t& index);

/// The rules of code that was registered with the compiler's run-time library (`__register_frame`), from
/// where no module is. That library may take a lock and, when it first sees a table, the heap, so this is not
/// for a signal handler, nor while another thread is stopped.
bool FindRegisteredRules(std::uint64_t address, FrameRules& rules);

/// Whether `address` lies in the code that `FindRegisteredRules` asks.
bool IsInRegistry(const UnwindModule& module);

}  // namespace ZBase::os
