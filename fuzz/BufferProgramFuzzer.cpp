#include <Base/frame/detail/LibraryState.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/BufferModel.h"
#include "tests/support/BufferProgram.h"

// The input is a program of operations on a buffer; see tests/support/BufferProgram.h. Chunks stop growing
// early, so that programs reach that.
//
// For: Base/memory/detail/BufferImplementation.cpp Base/memory/detail/BufferLockFreeImplementation.cpp
// For: Base/memory/detail/BufferBase.cpp Base/memory/BufferResource.cpp Base/memory/Buffer.cpp
// For: Base/memory/BufferGrowth.cpp
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ZBase::sGrowLimitBytes = test::BufferModel::sGrowLimit = std::size_t{1} << 20;
    const std::string difference = test::RunBufferProgram(data, size);
    if (difference.empty()) return 0;
    std::fprintf(stderr, "%s\n", difference.c_str());
    std::abort();
}
