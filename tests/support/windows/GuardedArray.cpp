#include "tests/support/GuardedArray.h"

#include <windows.h>

#include <stdexcept>

namespace test {

GuardedMemory::GuardedMemory(std::size_t size) {
    constexpr std::size_t page = 4096;
    const std::size_t used = (size + page - 1) / page * page;
    mMappedSize = page + used + page;
    mpPages = VirtualAlloc(nullptr, mMappedSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (mpPages == nullptr) throw std::runtime_error("no pages");
    char* const first = static_cast<char*>(mpPages) + page;
    char* const guard = first + used;
    DWORD before = 0;
    if (VirtualProtect(mpPages, page, PAGE_NOACCESS, &before) == 0 ||
        VirtualProtect(guard, page, PAGE_NOACCESS, &before) == 0)
        throw std::runtime_error("no guard page");
    mpFirst = first;
    mpData = guard - size;
}

GuardedMemory::~GuardedMemory() {
    VirtualFree(mpPages, 0, MEM_RELEASE);
}

}  // namespace test
