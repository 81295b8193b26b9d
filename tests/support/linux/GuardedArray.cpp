#include "tests/support/GuardedArray.h"

#include <sys/mman.h>
#include <unistd.h>
#include <stdexcept>

namespace test {

GuardedMemory::GuardedMemory(std::size_t size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t used = (size + page - 1) / page * page;
    mMappedSize = page + used + page;
    mpPages = mmap(nullptr, mMappedSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mpPages == MAP_FAILED) throw std::runtime_error("no pages");
    char* const first = static_cast<char*>(mpPages) + page;
    char* const guard = first + used;
    if (mprotect(mpPages, page, PROT_NONE) != 0 || mprotect(guard, page, PROT_NONE) != 0) {
        throw std::runtime_error("no guard page");
    }
    mpFirst = first;
    mpData = guard - size;
}

GuardedMemory::~GuardedMemory() {
    munmap(mpPages, mMappedSize);
}

}  // namespace test
