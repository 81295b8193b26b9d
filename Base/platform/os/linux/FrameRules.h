#pragma once

#include <cstddef>
#include <cstdint>

namespace ZBase::os {

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
};

/// The expression at a place of the tables, where its length stands first.
Expression ExpressionAt(std::int64_t place);

/// The general registers, laid out as in a `ThreadContext`, of which they are the beginning.
struct alignas(16) GeneralRegisters {
    unsigned char head[0x78];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;
};
static_assert(sizeof(GeneralRegisters) == 0x100 && offsetof(GeneralRegisters, rip) == 0xF8);

/// `CaptureContext`, into less room.
void CaptureRegisters(GeneralRegisters* registers);

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
    /// From the general registers of a `ThreadContext`, or from those alone.
    template <class State>
    FrameWalker(const State& from, LoadWord load)
        : mRegisters{from.rax, from.rdx, from.rcx, from.rbx, from.rsi, from.rdi, from.rbp, from.rsp, from.r8,
                     from.r9,  from.r10, from.r11, from.r12, from.r13, from.r14, from.r15, from.rip},
          mLoad(load) {}

    std::uint64_t Address() const { return mRegisters[kReturnAddress]; }
    std::uint64_t StackPointer() const { return mRegisters[kRsp]; }

    /// Where the function of this frame begins; 0 if it has no rules.
    std::uint64_t FunctionStart();

    /// Goes to the caller; false at the end of the stack and where there are no rules.
    bool Step();

    /// Whether the rules of this frame say that it has no caller.
    bool IsAtEnd();

private:
    bool Find(FrameRules& rules);
    bool Caller(const FrameRules& rules, unsigned int number, std::uint64_t cfa, std::uint64_t& value) const;

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
