// A stand-in for the outside heap: each of the 14 words of its record contains its own index.

#include <Base/frame/Api.h>

#include <cstddef>
#include <cstdint>

#include "tests/components/ComponentLog.h"

static std::uint64_t gUsed = 0;
static std::uint64_t gTotal = 0;
static int gAnswer = 1;

extern "C" {

COMPONENT_API void SetFigures(std::uint64_t used, std::uint64_t total, int answer) {
    gUsed = used;
    gTotal = total;
    gAnswer = answer;
}

COMPONENT_API int MemProcessInfo2(std::uint64_t* words) {
    for (std::uint64_t i = 0; i != 14; ++i) words[i] = 0x1000000010000 * (i + 1) + i;
    words[7] = gUsed;
    words[8] = gTotal;
    return gAnswer;
}

COMPONENT_API std::size_t ShrinkCache(std::size_t size) {
    return size / 2;
}
}
