#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

#include <sys/uio.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>

namespace ZBase::os {

bool LoadForeignWord(void*, std::uint64_t address, std::uint64_t& value) {
    const iovec to{&value, sizeof value};
    const iovec from{reinterpret_cast<void*>(address), sizeof value};
    return process_vm_readv(getpid(), &to, 1, &from, 1, 0) == static_cast<ssize_t>(sizeof value);
}

void ForeignMemory::Forget() {
    for (Page& page : mPages) page.address = 1;
}

const ForeignMemory::Page* ForeignMemory::PageAt(std::uint64_t address) {
    Page& page = mPages[address / kPage % kPages];
    const std::uint64_t start = address & ~(kPage - 1);
    if (page.address == start) return &page;
    const iovec to{page.octets, kPage};
    const iovec from{reinterpret_cast<void*>(start), kPage};
    page.address = 1;
    if (process_vm_readv(getpid(), &to, 1, &from, 1, 0) != static_cast<ssize_t>(kPage)) return nullptr;
    page.address = start;
    return &page;
}

bool ForeignMemory::Load(void* memory, std::uint64_t address, std::uint64_t& value) {
    auto* to = reinterpret_cast<unsigned char*>(&value);
    for (std::size_t left = sizeof value; left != 0;) {
        const Page* const page = static_cast<ForeignMemory*>(memory)->PageAt(address);
        if (page == nullptr) return false;
        const std::size_t count = std::min<std::size_t>(left, kPage - address % kPage);
        std::memcpy(to, page->octets + address % kPage, count);
        to += count;
        address += count;
        left -= count;
    }
    return true;
}

}  // namespace ZBase::os
