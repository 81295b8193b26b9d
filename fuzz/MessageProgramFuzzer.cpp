#include "fuzz/Check.h"
#include "tests/support/MessageProgram.h"

#include <cstddef>
#include <cstdint>

// The input is a program of operations on messages; see tests/support/MessageProgram.h.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string difference = test::RunMessageProgram(data, size);
    fuzz::Check(difference.empty(), difference.c_str());
    return 0;
}
