#include <Base/platform/os/linux/memory/OwnMemory.h>
#include <Base/platform/os/linux/stacks/unwind/StackMemory.h>

#include <algorithm>
#include <cstring>

namespace ZBase::os {

bool LoadForeignWord(void*, std::uint64_t address, std::uint64_t& value) {
    return CopyOwnMemory(address, &value, sizeof value) == sizeof value;
}

void ForeignMemory::Forget() {
    for (Page& page : mPages) page.address = 1;
}

const ForeignMemory::Page* ForeignMemory::PageAt(std::uint64_t address) {
    Page& page = mPages[address / kPage % kPages];
    const std::uint64_t start = address & ~(kPage - 1);
    if (page.address == start) return &page;
    page.address = 1;
    if (CopyOwnMemory(start, page.octets, kPage) != kPage) return nullptr;
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
