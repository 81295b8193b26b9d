#pragma once

#include <cstdint>

#include <Base/platform/os/linux/stacks/Registers.h>

namespace ZBase::os {

// Unwind tables (.eh_frame with its search table) of the loaded modules, read where they are mapped. Nothing
// here allocates, locks or calls the system, so all of it may be used in a signal handler.

enum class RuleKind : std::uint8_t {
    Same,       // caller's = callee's
    Undefined,  // lost; for the return address: no caller
    Stored,     // *(CFA + `value`)
    Offset,     // CFA + `value`
    Register,   // the register numbered `value`
    StoredAt,   // *(result of the expression at `value`)
    Computed,   // result of the expression at `value`
};

/// How a caller's registers are computed from a function's own, at one address in it. The CFA is the value of
/// the stack pointer before the call. Kept small, since several of them are on a stack that may be a
/// signal's.
struct FrameRules {
    bool cfaIsExpression;
    bool isSignalFrame;
    RuleKind kinds[kRegisters];
    std::int64_t values[kRegisters];
    std::uint64_t cfaRegister;
    std::int64_t cfaOffset;  // or the address of its expression
    std::uint64_t functionStart;
    std::uint64_t functionEnd;
};

/// The parts of a module for its unwind tables.
struct UnwindModule {
    std::uint64_t start;
    std::uint64_t end;
    const std::uint8_t* searchTable;
    std::uint64_t identity;  // differs between modules loaded to one address in turn; 0 if unknown
};

/// The module that contains `address`; false if none does.
bool FindUnwindModule(std::uint64_t address, UnwindModule& module);

/// The rules at `address`, in `module`; false if there are none.
bool FindFrameRules(const UnwindModule& module, std::uint64_t address, FrameRules& rules);

inline constexpr std::uint32_t kNoIndex = ~std::uint32_t{0};

/// A hash of everything that determines the rules at `address`, which no other module at the same address
/// shares unless its rules are the same; 0 if there are none. `index` is their index in the module's table,
/// or `kNoIndex` to search for it.
std::uint64_t FindDescriptionHash(const UnwindModule& module, std::uint64_t address, std::uint32_t& index);

/// The rules of code that was registered with the compiler's run-time library (`__register_frame`), outside
/// of modules. That library may take a lock and, when it first sees a table, the heap, so this is neither for
/// a signal handler nor for use while another thread is stopped.
bool FindRegisteredRules(std::uint64_t address, FrameRules& rules);

/// Whether `address` is in the code that `FindRegisteredRules` calls.
bool IsInRegistry(const UnwindModule& module);

}  // namespace ZBase::os
