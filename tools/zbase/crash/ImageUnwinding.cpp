#include "ImageUnwinding.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr const char* kRegisters[] = {"$rax", "$rcx", "$rdx", "$rbx", "$rsp", "$rbp", "$rsi", "$rdi",
                                      "$r8",  "$r9",  "$r10", "$r11", "$r12", "$r13", "$r14", "$r15"};

// The operations as images have them.
enum : unsigned int {
    kPushNonvolatile,
    kAllocateLarge,
    kAllocateSmall,
    kSetFrame,
    kSaveNonvolatile,
    kSaveNonvolatileFar,
    kEpilogue,
    kSpare,
    kSaveVector,
    kSaveVectorFar,
    kPushMachineFrame,
};

// A register and a distance, "$rsp 8 +".
std::string Sum(const char* base, std::int64_t distance) {
    return std::string(base) + " " + std::to_string(distance < 0 ? -distance : distance) +
           (distance < 0 ? " -" : " +");
}

std::string Line(const char* kind, std::uint32_t address) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%x", address);
    return std::string(kind) + digits;
}

/// The state of a prologue as it runs.
class Prologue {
public:
    Prologue(const std::vector<UnwindCode>& codes, const UnwindFrame& frame) : mFrame(frame) {
        for (const UnwindCode& code : codes) {
            if (code.kind == EUnwind::ePush || code.kind == EUnwind::eAllocate) mWhole += Size(code);
            if (code.kind == EUnwind::eSetFrame) mBase = mWhole;
        }
        if (mBase == 0) mBase = mWhole;
    }

    /// The rules that an instruction changes.
    std::string Run(const UnwindCode& code) {
        switch (code.kind) {
            case EUnwind::ePush:
            case EUnwind::eAllocate: {
                mDepth += Size(code);
                std::string rules = mHasFrame ? "" : " .cfa: " + Sum("$rsp", mDepth);
                if (code.kind == EUnwind::ePush) rules += Saved(code.reg, mDepth);
                return rules;
            }
            case EUnwind::eSetFrame:
                mHasFrame = true;
                return " .cfa: " + Sum(kRegisters[mFrame.reg], mDepth - mFrame.offset);
            case EUnwind::eSave:
                return Saved(code.reg, mBase - code.value);
            default:
                return "";
        }
    }

private:
    static std::int64_t Size(const UnwindCode& code) { return code.kind == EUnwind::ePush ? 8 : code.value; }

    static std::string Saved(unsigned int reg, std::int64_t below) {
        return std::string(" ") + kRegisters[reg & 15] + ": " + Sum(".cfa", -below) + " ^";
    }

    UnwindFrame mFrame;
    bool mHasFrame = false;
    std::int64_t mDepth = 8;  // of the stack below the caller's, the return address included
    std::int64_t mWhole = 8;
    std::int64_t mBase = 0;  // what saved registers are counted from
};

}  // namespace

std::vector<UnwindCode> ReadUnwindCodes(const std::vector<std::uint16_t>& slots) {
    std::vector<UnwindCode> codes;
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const auto offset = static_cast<std::uint8_t>(slots[i] & 0xFF);
        const auto info = static_cast<std::uint8_t>(slots[i] >> 12);
        const auto next = [&]() -> std::uint32_t { return ++i < slots.size() ? slots[i] : 0; };
        const auto wide = [&] {
            const std::uint32_t low = next();
            return low | next() << 16;
        };
        switch (slots[i] >> 8 & 15) {
            case kPushNonvolatile:
                codes.push_back({offset, EUnwind::ePush, info, 0});
                break;
            case kAllocateLarge:
                codes.push_back({offset, EUnwind::eAllocate, 0, info == 0 ? next() * 8 : wide()});
                break;
            case kAllocateSmall:
                codes.push_back({offset, EUnwind::eAllocate, 0, info * 8U + 8});
                break;
            case kSetFrame:
                codes.push_back({offset, EUnwind::eSetFrame, info, 0});
                break;
            case kSaveNonvolatile:
                codes.push_back({offset, EUnwind::eSave, info, next() * 8});
                break;
            case kSaveNonvolatileFar:
                codes.push_back({offset, EUnwind::eSave, info, wide()});
                break;
            case kEpilogue:
                break;
            case kSaveVector:
                next();
                break;
            case kSpare:
            case kSaveVectorFar:
                wide();
                break;
            case kPushMachineFrame:
                codes.push_back({offset, EUnwind::eMachine, 0, 0});
                break;
            default:
                i = slots.size();
        }
    }
    std::reverse(codes.begin(), codes.end());
    return codes;
}

std::string UnwindRules(const ImageFunction& function, const std::vector<UnwindCode>& codes,
                        const UnwindFrame& frame) {
    for (const UnwindCode& code : codes)
        if (code.kind == EUnwind::eMachine) return "";
    std::string lines = Line("STACK CFI INIT ", function.start) + Line(" ", function.end - function.start) +
                        " .cfa: $rsp 8 + .ra: .cfa 8 - ^";
    Prologue prologue(codes, frame);
    std::uint32_t at = 0;
    for (const UnwindCode& code : codes) {
        const std::string rules = prologue.Run(code);
        if (rules.empty()) continue;
        if (code.offset != at) lines += "\n" + Line("STACK CFI ", function.start + code.offset);
        at = code.offset;
        lines += rules;
    }
    return lines + "\n";
}
