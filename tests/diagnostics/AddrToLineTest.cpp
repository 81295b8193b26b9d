#include <TestPlaces.h>

#include <Base/diagnostics/AddrToLine.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

extern "C" void _start();

namespace {

using ZBase::AddrToLine;
using ZBase::gDbgHelpBuilder;

struct Fetched {
    std::string module = "m";
    std::string symbol = "s";
    std::string file = "f";
    std::string line = "l";
};

Fetched Fetch(std::uint64_t address) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    AddrToLine resolver;
    resolver.Initialize();
    Fetched fetched;
    resolver.Fetch(address, fetched.module, fetched.symbol, fetched.file, fetched.line);
    return fetched;
}

std::string Hexadecimal(std::uint64_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

TEST(AddrToLine, AddressOutsideAnyModuleEmptiesTheModuleAlone) {
    for (const std::uint64_t address : {std::uint64_t{0}, std::uint64_t{16}, ~std::uint64_t{0}}) {
        const Fetched fetched = Fetch(address);
        EXPECT_EQ(fetched.module, "");
        EXPECT_EQ(fetched.symbol, "s");
        EXPECT_EQ(fetched.file, "f");
        EXPECT_EQ(fetched.line, "l");
    }
}

// The return addresses of this thread in code that was built here: only that has the same debug information
// on every machine.
std::vector<std::uint64_t> OwnReturnAddresses() {
    std::uint64_t stack[40] = {};
    gDbgHelpBuilder.DoStackWalk(stack, 40, 0);
    std::vector<std::uint64_t> own;
    for (const std::uint64_t address : stack) {
        Dl_info module{};
        if (dladdr(reinterpret_cast<const void*>(address), &module) == 0) continue;
        const std::string file = std::filesystem::absolute(module.dli_fname);
        if (file.starts_with(ZBASE_BUILD_DIR)) own.push_back(address);
    }
    return own;
}

// Three more frames, whatever the optimiser does.
[[gnu::noinline]] std::vector<std::uint64_t> OwnReturnAddressesFrom(int depth) {
    std::vector<std::uint64_t> own = depth == 0 ? OwnReturnAddresses() : OwnReturnAddressesFrom(depth - 1);
    asm volatile("" : : "r"(own.data()) : "memory");
    return own;
}

// An independent reader of the same debug information looks up the same addresses in this process.
TEST(AddrToLine, AgreesWithEuAddr2line) {
    const std::vector<std::uint64_t> stack = OwnReturnAddressesFrom(3);
    ASSERT_GT(stack.size(), 4U);
    std::vector<std::string> command = {"/usr/bin/env", "eu-addr2line", "-C",
                                        "-S",           "-p",           std::to_string(getpid())};
    for (const std::uint64_t address : stack) command.push_back(Hexadecimal(address));
    const test::ChildResult child = test::RunChild(command);
    ASSERT_EQ(child.exitCode, 0) << child.errors;
    std::istringstream output(child.output);
    int withLines = 0;
    for (const std::uint64_t address : stack) {
        std::string symbol, place;
        ASSERT_TRUE(std::getline(output, symbol) && std::getline(output, place));
        const Fetched fetched = Fetch(address);
        const std::string own = fetched.symbol == "s" ? "??" : fetched.symbol;
        // The symbol stands in front of its offset.
        EXPECT_TRUE(symbol.starts_with(own)) << symbol << " against " << own;
        if (fetched.file == "f") {
            EXPECT_TRUE(place.starts_with("??:0")) << place;
            continue;
        }
        // The tool finds no line of a unit that its compiler left out of the index.
        if (place.starts_with("??:0")) continue;
        ++withLines;
        // A relative name follows its compilation directory.
        EXPECT_NE((place + ":").find(fetched.file + ":" + fetched.line + ":"), std::string::npos) << place;
    }
    EXPECT_GT(withLines, 0);
}

TEST(AddrToLine, LineIsThatOfTheAddressItself) {
    std::uint64_t stack[40] = {};
    const int before = __LINE__;
    gDbgHelpBuilder.DoStackWalk(stack, 40, 1);
    const int line = std::stoi(Fetch(stack[0]).line);
    EXPECT_GT(line, before);
    EXPECT_LE(line, before + 2);
}

TEST(AddrToLine, CodeBetweenCompilationUnitsHasNoLine) {
    const Fetched fetched = Fetch(reinterpret_cast<std::uint64_t>(&_start));
    EXPECT_EQ(fetched.symbol, "_start");
    EXPECT_EQ(fetched.file, "f");
    EXPECT_EQ(fetched.line, "l");
}

TEST(AddrToLine, StrippedModuleStillGivesItsExportedSymbols) {
    // The C++ runtime comes without a symbol table.
    const auto address = reinterpret_cast<std::uint64_t>(static_cast<void (*)()>(std::terminate));
    const Fetched fetched = Fetch(address + 1);
    EXPECT_EQ(fetched.symbol, "std::terminate()");
    EXPECT_NE(fetched.module.find("libstdc++"), std::string::npos);
}

}  // namespace
