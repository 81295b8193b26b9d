#pragma once

#include <Base/diagnostics/CallStack.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace test {

/// A parsed line of a stack; `isWhole` if it has exactly the form.
struct StackLine {
    bool isWhole = false;
    std::string address;
    std::string frame;
    std::string module;
    std::string symbol;
    std::string displacement;
    std::string file;
    std::string line;
};

inline std::string Narrow(const unsigned short* text) {
    std::string narrow;
    for (; *text != 0; ++text) narrow += static_cast<char>(*text);
    return narrow;
}

inline StackLine Parse(const std::string& text) {
    static const std::regex form(
        "0x([0-9A-F]{16}) 0x([0-9A-F]{16}) Mod:\\[(.*)\\]\tSym:\\[(.*)\\]\\+0x([0-9a-f]+)\tFile:\\[(.*)\\]"
        "\\((-?[0-9]+)\\)");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) return {};
    return {true, parts[1], parts[2], parts[3], parts[4], parts[5], parts[6], parts[7]};
}

struct DeleteStack {
    void operator()(ZBase::CallStack* stack) const { stack->Delete(); }
};
using Stack = std::unique_ptr<ZBase::CallStack, DeleteStack>;

inline std::vector<StackLine> Lines(ZBase::CallStack& stack) {
    std::vector<StackLine> lines;
    for (unsigned int i = 0; i != stack.GetLineCount(); ++i)
        lines.push_back(Parse(Narrow(stack.GetLine(i).GetText())));
    return lines;
}

inline std::vector<std::string> Symbols(ZBase::CallStack& stack) {
    std::vector<std::string> symbols;
    for (const StackLine& line : Lines(stack)) symbols.push_back(line.symbol);
    return symbols;
}

/// The addresses of a walk up to the zero behind them.
inline std::size_t CountFound(const std::uint64_t* found) {
    std::size_t count = 0;
    while (found[count] != 0) ++count;
    return count;
}

/// Prevents a tail call, which would leave the caller out of every stack.
inline void StayHere() {
    asm volatile("" ::: "memory");
}

}  // namespace test
