#pragma once

#include <cstdint>

namespace ZBase::os {

struct ThreadContext;

// Unwind tables (.eh_frame with its search table) of the loaded modules, read where they are mapped. Nothing
// here allocates, locks or calls the system, so all of it is good inside a signal handler.

inline constexpr unsigned int kRegisters = 17;  // numbered as in the tables; the last is the return address
inline constexpr unsigned int kRbp = 6;
inline constexpr unsigned int kRsp = 7;
inline constexpr unsigned int kReturnAddress = 16;

/// Reads a word of a stack; false if it can't be read.
using LoadWord = bool (*)(std::uint64_t address, std::uint64_t& value);

struct Expression {
    const std::uint8_t* start;
    const std::uint8_t* end;
};

enum class RuleKind : std::uint8_t {
    Same,       // the caller's value is the callee's
    Undefined,  // lost; for the return address: there is no caller
    Stored,     // at the CFA plus `value`
    Offset,     // the CFA plus `value`
    Register,   // in register `value`
    StoredAt,   // at the address that `expression` gives
    Computed,   // what `expression` gives
};

struct RegisterRule {
    RuleKind kind;
    std::int64_t value;
    Expression expression;
};

/// How the registers of a function's caller follow from its own, at one place in it. The CFA is the value of
/// the stack pointer before the call.
struct FrameRules {
    bool cfaIsExpression;
    std::uint64_t cfaRegister;
    std::int64_t cfaOffset;
    Expression cfaExpression;
    RegisterRule registers[kRegisters];
    bool isSignalFrame;
    std::uint64_t functionStart;
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

/// Walks by whole rules, with all registers, one frame at a time.
class FrameWalker {
public:
    FrameWalker(const ThreadContext& context, LoadWord load);

    std::uint64_t Address() const { return mRegisters[kReturnAddress]; }

    /// Where the function of this frame begins; 0 if it has no rules.
    std::uint64_t FunctionStart();

    /// Goes to the caller; false at the end of the stack.
    bool Step();

private:
    bool Find(FrameRules& rules);
    bool Caller(const FrameRules& rules, const RegisterRule& rule, unsigned int number, std::uint64_t cfa,
                std::uint64_t& value) const;

    std::uint64_t mRegisters[kRegisters];
    LoadWord mLoad;
    bool mIsReturnAddress = false;  // else the thread was stopped at the address itself
    UnwindModule mModule{};
};

// A stack is read as it is, also where a sanitizer watches what compiled code does.
#define ZBASE_READS_STACKS __attribute__((no_sanitize("address"), no_sanitize("thread")))

/// Reads memory of this thread's own stack.
bool LoadOwnWord(std::uint64_t address, std::uint64_t& value);

/// Reads memory that may not be there. Calls the system.
bool LoadForeignWord(std::uint64_t address, std::uint64_t& value);

}  // namespace ZBase::os
