#include <Base/platform/os/linux/memory/WipedMemory.h>

#include <sys/mman.h>

namespace ZBase::os {

void* AllocateWipedMemory(std::size_t size) {
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return nullptr;
    if (madvise(pages, size, MADV_WIPEONFORK) == 0) return pages;
    munmap(pages, size);
    return nullptr;
}

}  // namespace ZBase::os
