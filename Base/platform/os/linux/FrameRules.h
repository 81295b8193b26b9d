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

/// Reads words of a stack: `load` gives false for one that can't be read.
struct WordReader {
    bool (*load)(void* argument, std::uint64_t address, std::uint64_t& value);
    void* argument;

    bool operator()(std::uint64_t address, std::uint64_t& value) const {
        return load(argument, address, value);
    }
};

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
    std::uint64_t functionEnd;
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

/// What a walk does about code that lies in no module.
class CodeOutsideModules {
public:
    /// The rules at `address`; false if there are none, or none can be had now.
    virtual bool Find(std::uint64_t address, FrameRules& rules) = 0;

protected:
    ~CodeOutsideModules() = default;
};

/// Walks by whole rules, with all registers, one frame at a time. Code without rules is taken to keep its
/// caller's frame pointer and the return address where its own frame pointer leads.
class FrameWalker {
public:
    /// From the general registers of a `ThreadContext`, or from those alone.
    template <class State>
    FrameWalker(const State& from, WordReader load, CodeOutsideModules* outside)
        : mRegisters{from.rax, from.rdx, from.rcx, from.rbx, from.rsi, from.rdi, from.rbp, from.rsp, from.r8,
                     from.r9,  from.r10, from.r11, from.r12, from.r13, from.r14, from.r15, from.rip},
          mLoad(load),
          mpOutside(outside) {}

    std::uint64_t Address() const { return mRegisters[kReturnAddress]; }
    std::uint64_t StackPointer() const { return mRegisters[kRsp]; }
    std::uint64_t Register(unsigned int number) const { return mRegisters[number]; }

    /// Where the function of this frame begins; 0 if it has no rules.
    std::uint64_t FunctionStart();

    /// The module of the frame that `Step` left; all zero if it was in none.
    const UnwindModule& Module() const { return mModule; }

    /// Whether the frame that `Step` left was a signal's.
    bool WasSignalFrame() const { return mWasSignalFrame; }

    /// Goes to the caller; false at the end of the stack and where the caller can't be found.
    bool Step();

private:
    bool Find(FrameRules& rules);
    bool StepByRules(const FrameRules& rules);
    bool StepByFramePointer();
    bool Caller(const FrameRules& rules, unsigned int number, std::uint64_t cfa, std::uint64_t& value) const;

    std::uint64_t mRegisters[kRegisters];
    WordReader mLoad;
    CodeOutsideModules* mpOutside;  // held, not owned; null if nothing is known of such code
    bool mIsReturnAddress = false;  // else the thread was stopped at the address itself
    bool mWasSignalFrame = false;
    UnwindModule mModule{};
};

/// Reads a word that may not be there, through the system. The argument is not used.
bool LoadForeignWord(void*, std::uint64_t address, std::uint64_t& value);

// A stack is read as it is, also where a sanitizer watches what compiled code does.
#define ZBASE_READS_STACKS __attribute__((no_sanitize("address"), no_sanitize("thread")))

}  // namespace ZBase::os
