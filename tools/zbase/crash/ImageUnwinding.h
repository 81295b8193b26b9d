#pragma once

#include <cstdint>
#include <string>
#include <vector>

// How functions of an image of 64-bit Windows are unwound: from the codes of their prologues to the rules of
// a Breakpad symbol file.

/// An entry of an image's table of functions, all addresses in the image.
struct ImageFunction {
    std::uint32_t start;
    std::uint32_t end;
    std::uint32_t codes;
};

enum class EUnwind : std::uint8_t {
    ePush,
    eAllocate,
    eSetFrame,
    eSave,
    eMachine,  // a frame that the processor pushed
};

/// What an instruction of a prologue does.
struct UnwindCode {
    std::uint8_t offset;  // of the end of the instruction in the function
    EUnwind kind;
    std::uint8_t reg;     // as instructions number them
    std::uint32_t value;  // octets that are allocated, or where a register is saved
};

/// The register that holds the frame, 0 if none does, and how far in the frame it points.
struct UnwindFrame {
    std::uint8_t reg = 0;
    std::uint32_t offset = 0;
};

/// In the order in which they run. What is cut off or unknown ends them.
std::vector<UnwindCode> ReadUnwindCodes(const std::vector<std::uint16_t>& slots);

/// The lines "STACK CFI" of a function; empty where the processor pushed the frame.
std::string UnwindRules(const ImageFunction& function, const std::vector<UnwindCode>& codes,
                        const UnwindFrame& frame);
