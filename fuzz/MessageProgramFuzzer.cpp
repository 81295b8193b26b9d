#include "tests/support/MessageProgram.h"

#include <cstdio>
#include <cstdlib>

// The input is a program of operations on messages; see tests/support/MessageProgram.h.
//
// For: Base/messages/MessageCursor.cpp Base/messages/ConstMessageCursor.cpp
// For: Base/messages/detail/Records.cpp Base/messages/parts/MessageTree.cpp Base/messages/detail/Links.h
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string difference = test::RunMessageProgram(data, size);
    if (difference.empty()) return 0;
    std::fprintf(stderr, "%s\n", difference.c_str());
    std::abort();
}
