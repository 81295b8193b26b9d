// The walk of the calling thread's own stack: no heap, no lock, no system call; for signal handlers too.
//
// Code without frame pointers describes a caller's frame only in its unwind tables, and reading those takes a
// search and a small interpreter for each frame. But for almost every frame the result is simple: CFA = stack
// or frame pointer plus a constant (or a word at such an address), the return address is below it, and the
// frame pointer is unchanged or stored at a constant offset. That fits into one word, and a return address
// always has the same word, so they are cached in a table by address and a warm walk is a few loads a frame.
// For other frames (a signal frame, a CFA in another register) the word says so and the walk is repeated by
// FrameWalker, which restores every register.
//
// The table takes no lock. An entry is two words, the rule and a tag: the exclusive or of the address, the
// identity of its module and a hash of the rule. A reader that sees the halves of different entries finds a
// tag that does not match, and reads the unwind tables instead. The identity changes when a module is
// unloaded and another is mapped in its place, so the old one's rules are never used. A module without a
// build id has none: there a hash of the function's own tables is used, found by an index that is cached with
// the rule.
//
// A damaged stack may lead anywhere. Every address that is read is between the stack pointer and the end of
// memory known to be readable (OwnStack).

#include <atomic>

#include <Base/platform/os/linux/stacks/OwnStack.h>
#include <Base/platform/os/linux/stacks/unwind/DwarfExpression.h>
#include <Base/platform/os/linux/stacks/unwind/RegisteredCode.h>
#include <Base/platform/os/stacks/DebugHelp.h>

namespace ZBase::os {

namespace {

// Fields of a rule: kind in 3 bits, the distance of the stored frame pointer below the CFA in words in 9 (0:
// unchanged), the table index of a module without identity in 20, the CFA's offset in 32.
enum Kind : std::uint64_t {
    None,
    FromStackPointer,  // CFA = stack pointer + offset
    FromFramePointer,  // CFA = frame pointer + offset
    Realigned,         // CFA = *(frame pointer + offset); the caller's frame pointer = *frame pointer
    End,               // no caller
    Whole,             // needs FrameWalker
};
constexpr unsigned int kDistanceShift = 3;
constexpr std::uint64_t kDistanceLimit = std::uint64_t{1} << 9;
constexpr unsigned int kIndexShift = 12;
constexpr std::uint64_t kIndexLimit = std::uint64_t{1} << 20;
constexpr unsigned int kOffsetShift = 32;

struct Entry {
    std::atomic<std::uint64_t> tag;
    std::atomic<std::uint64_t> rule;
};
constexpr std::size_t kEntries = 8192;
alignas(64) constinit Entry sEntries[kEntries];

std::uint64_t Tag(std::uint64_t address, std::uint64_t identity, std::uint64_t rule) {
    return address ^ identity ^ (rule * 0x9E3779B97F4A7C15);
}

// An address may be in one of two adjacent entries, on one cache line.
Entry* Place(std::uint64_t address) {
    return &sEntries[(address * 0x9E3779B97F4A7C15) >> 51 & (kEntries - 2)];
}

std::uint64_t Recall(std::uint64_t address, std::uint64_t identity) {
    const Entry* entry = Place(address);
    for (int i = 0; i != 2; ++i, ++entry) {
        const std::uint64_t rule = entry->rule.load(std::memory_order_relaxed);
        if (entry->tag.load(std::memory_order_relaxed) == Tag(address, identity, rule)) return rule;
    }
    return None;
}

/// `Recall` in a module without identity.
[[gnu::noinline]] std::uint64_t RecallByTables(std::uint64_t address, const UnwindModule& module) {
    const Entry* entry = Place(address);
    for (int i = 0; i != 2; ++i, ++entry) {
        const std::uint64_t rule = entry->rule.load(std::memory_order_relaxed);
        auto index = static_cast<std::uint32_t>((rule >> kIndexShift) % kIndexLimit);
        const std::uint64_t hash = FindDescriptionHash(module, address - 1, index);
        if (hash != 0 && entry->tag.load(std::memory_order_relaxed) == Tag(address, hash, rule)) return rule;
    }
    return None;
}

void Remember(std::uint64_t address, std::uint64_t identity, std::uint64_t rule) {
    Entry* const entry = Place(address);
    // The newest is first; the previous one is kept after it.
    entry[1].rule.store(entry[0].rule.load(std::memory_order_relaxed), std::memory_order_relaxed);
    entry[1].tag.store(entry[0].tag.load(std::memory_order_relaxed), std::memory_order_relaxed);
    entry[0].rule.store(rule, std::memory_order_relaxed);
    entry[0].tag.store(Tag(address, identity, rule), std::memory_order_relaxed);
}

constexpr std::uint8_t kFromFramePointer = dwarf::op::Breg0 + kFramePointer;

/// The rules of a function that realigns its stack, as compilers write them: CFA = *(frame pointer + offset),
/// with the offset in one octet, and the caller's frame pointer = *frame pointer.
bool IsRealigned(const FrameRules& rules, std::int64_t& offset) {
    if (rules.kinds[kFramePointer] != RuleKind::StoredAt) return false;
    const Expression cfa = ExpressionAt(rules.cfaOffset);
    const Expression stored = ExpressionAt(rules.values[kFramePointer]);
    if (stored.end - stored.start != 2 || cfa.end - cfa.start != 3) return false;
    if (stored.start[0] != kFromFramePointer || stored.start[1] != 0) return false;
    if (cfa.start[0] != kFromFramePointer || cfa.start[1] >= 0x80 || cfa.start[2] != dwarf::op::Deref)
        return false;
    offset = cfa.start[1] - ((cfa.start[1] & 0x40) << 1);  // seven bits with a sign (SLEB128)
    return true;
}

std::uint64_t Pack(const FrameRules& rules) {
    const RuleKind returnAddress = rules.kinds[kReturnAddress];
    if (returnAddress == RuleKind::Undefined) return End;
    if (returnAddress != RuleKind::Stored || rules.values[kReturnAddress] != kReturnAddressPlace)
        return Whole;
    if (rules.isSignalFrame || rules.kinds[kStackPointer] != RuleKind::Same) return Whole;
    std::uint64_t kind = None;
    std::uint64_t distance = 0;
    std::int64_t offset = rules.cfaOffset;
    if (rules.cfaIsExpression) {
        if (!IsRealigned(rules, offset)) return Whole;
        kind = Realigned;
    } else {
        if (rules.cfaRegister != kFramePointer && rules.cfaRegister != kStackPointer) return Whole;
        if (offset != static_cast<std::int32_t>(offset)) return Whole;
        kind = rules.cfaRegister == kFramePointer ? FromFramePointer : FromStackPointer;
        if (rules.kinds[kFramePointer] == RuleKind::Stored) {
            const std::int64_t framePointer = rules.values[kFramePointer];
            distance = static_cast<std::uint64_t>(-framePointer) / 8;
            if (framePointer % 8 != 0 || distance == 0 || distance >= kDistanceLimit) return Whole;
        } else if (rules.kinds[kFramePointer] != RuleKind::Same) {
            return Whole;
        }
    }
    return kind | distance << kDistanceShift |
           static_cast<std::uint64_t>(static_cast<std::uint32_t>(offset)) << kOffsetShift;
}

[[gnu::noinline]] std::uint64_t Derive(const UnwindModule& module, std::uint64_t address) {
    FrameRules rules;
    std::uint64_t rule = FindFrameRules(module, address - 1, rules) ? Pack(rules) : std::uint64_t{Whole};
    std::uint64_t identity = module.identity;
    if (identity == 0) {
        std::uint32_t index = kNoIndex;
        identity = FindDescriptionHash(module, address - 1, index);
        if (identity == 0 || index >= kIndexLimit) return rule;
        rule |= std::uint64_t{index} << kIndexShift;
    }
    Remember(address, identity, rule);
    return rule;
}

[[gnu::tls_model("initial-exec")]] thread_local constinit bool tIsAsking = false;

[[gnu::noinline]] std::uint32_t WalkWhole(const GeneralRegisters& registers, std::uint32_t skip,
                                          std::uint32_t count, void** addresses) {
    OwnStack stack(registers.StackPointer());
    AskingRegistry registry(tIsAsking);
    FrameWalker walker(registers, {OwnStack::Load, &stack}, &registry);
    std::uint32_t stored = 0;
    for (std::uint32_t i = 0; stored != count && walker.Step(); ++i) {
        registry.Passed(walker);
        if (i >= skip) addresses[stored++] = reinterpret_cast<void*>(walker.Address());
    }
    return stored;
}

ZBASE_READS_STACKS inline std::uint64_t Load(std::uint64_t address) {
    return *reinterpret_cast<const std::uint64_t*>(address);
}

[[gnu::noinline]] ZBASE_READS_STACKS unsigned short CaptureStack(std::uint32_t skip, std::uint32_t count,
                                                                 void** addresses, std::uint32_t* hash) {
    if (hash != nullptr) *hash = 0;
    if (count > 0xFFFF) count = 0xFFFF;
    GeneralRegisters registers;
    CaptureRegisters(&registers);
    std::uint64_t address = registers.Address();
    std::uint64_t stackPointer = registers.StackPointer();
    std::uint64_t framePointer = registers.FramePointer();
    OwnStack stack(stackPointer);
    const std::uint64_t start = stackPointer;
    UnwindModule module{};
    std::uint32_t stored = 0;
    for (std::uint32_t i = 0; stored != count; ++i) {
        std::uint64_t rule = None;
        if (address - 1 - module.start < module.end - module.start || FindUnwindModule(address - 1, module)) {
            rule = module.identity == 0 ? RecallByTables(address, module) : Recall(address, module.identity);
            if (rule == None) rule = Derive(module, address);
        } else {
            rule = Whole;
        }
        const std::uint64_t kind = rule & 7;
        if (kind == End) break;
        if (kind == Whole) return static_cast<unsigned short>(WalkWhole(registers, skip, count, addresses));
        const auto offset = static_cast<std::uint64_t>(static_cast<std::int64_t>(rule) >> kOffsetShift);
        const std::uint64_t distance = (rule >> kDistanceShift) % kDistanceLimit;
        std::uint64_t cfa = (kind == FromStackPointer ? stackPointer : framePointer) + offset;
        if (kind == Realigned) {
            if (cfa < stackPointer || cfa % 8 != 0 || cfa + 8 == 0 || !stack.Reach(cfa + 8)) break;
            cfa = Load(cfa);
        }
        if (cfa <= stackPointer || cfa % 8 != 0) break;
        if (cfa > stack.End() && !stack.Reach(cfa)) break;
        address = Load(cfa + static_cast<std::uint64_t>(kReturnAddressPlace));
        if (kind == Realigned) {
            if (framePointer - start >= cfa - start || framePointer % 8 != 0) break;
            framePointer = Load(framePointer);
        } else if (distance != 0) {
            if (cfa - start < 8 * distance) break;
            framePointer = Load(cfa - 8 * distance);
        }
        stackPointer = cfa;
        if (address == 0) break;
        if (i >= skip) addresses[stored++] = reinterpret_cast<void*>(address);
    }
    return static_cast<unsigned short>(stored);
}

}  // namespace

StackCapture FindStackCapture() {
    return CaptureStack;
}

}  // namespace ZBase::os
