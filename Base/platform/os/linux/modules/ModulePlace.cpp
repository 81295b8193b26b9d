#include <Base/platform/os/linux/modules/ModulePlace.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <algorithm>
#include <atomic>
#include <cstring>

namespace ZBase::os {

namespace {

std::string_view FindBuildId(const char* notes, std::size_t size, std::size_t alignment) {
    const auto aligned = [alignment](std::size_t length) {
        return (length + alignment - 1) & ~(alignment - 1);
    };
    ElfW(Nhdr) header;
    while (size > sizeof header) {
        std::memcpy(&header, notes, sizeof header);
        const std::size_t idAt = aligned(sizeof header + header.n_namesz);
        const std::size_t length = idAt + aligned(header.n_descsz);
        if (length > size) break;
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 &&
            std::memcmp(notes + sizeof header, "GNU", 4) == 0)
            return {notes + idAt, header.n_descsz};
        notes += length;
        size -= length;
    }
    return {};
}

struct Extent {
    std::uint64_t start;
    std::uint64_t end;
};

// From the program's first segment to its last, which does not change; several threads may compute it at
// once.
Extent ProgramExtent(std::uint64_t bias) {
    static constinit std::atomic<std::uint64_t> sStart{0};
    static constinit std::atomic<std::uint64_t> sEnd{0};
    const std::uint64_t known = sEnd.load(std::memory_order_acquire);
    if (known != 0) return {sStart.load(std::memory_order_relaxed), known};
    const auto* const headers = reinterpret_cast<const ElfW(Phdr)*>(getauxval(AT_PHDR));
    const std::uint64_t count = headers == nullptr ? 0 : getauxval(AT_PHNUM);
    const std::uint64_t page = getauxval(AT_PAGESZ);
    std::uint64_t start = UINT64_MAX;
    std::uint64_t end = 0;
    for (std::uint64_t i = 0; i != count; ++i) {
        if (headers[i].p_type != PT_LOAD) continue;
        start = std::min(start, (bias + headers[i].p_vaddr) & ~(page - 1));
        end = std::max(end, bias + headers[i].p_vaddr + headers[i].p_memsz);
    }
    sStart.store(start, std::memory_order_relaxed);
    sEnd.store(end, std::memory_order_release);
    return {start, end};
}

}  // namespace

bool ModulePlace::Find(std::uint64_t address, ModulePlace& place) {
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return false;
    place = {reinterpret_cast<std::uint64_t>(found.dlfo_map_start),
             reinterpret_cast<std::uint64_t>(found.dlfo_map_end), found.dlfo_link_map};
    // The loader maps a module contiguously. Only the program, which the kernel maps, may have gaps between
    // its segments; then each of them is found by itself.
    if (*found.dlfo_link_map->l_name != 0) return true;
    const Extent program = ProgramExtent(found.dlfo_link_map->l_addr);
    if (address >= program.start && address < program.end)
        place = {program.start, std::max(program.end, place.end), found.dlfo_link_map};
    return true;
}

std::string_view ModulePlace::BuildId() const {
    ElfW(Ehdr) header;
    std::memcpy(&header, reinterpret_cast<const void*>(start), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return {};
    const auto* const segments = reinterpret_cast<const ElfW(Phdr)*>(start + header.e_phoff);
    for (unsigned int i = 0; i != header.e_phnum; ++i) {
        const auto& segment = segments[i];
        if (segment.p_type != PT_NOTE) continue;
        const auto* const notes = reinterpret_cast<const char*>(map->l_addr + segment.p_vaddr);
        const std::string_view id = FindBuildId(notes, segment.p_memsz, segment.p_align == 8 ? 8 : 4);
        if (!id.empty()) return id;
    }
    return {};
}

}  // namespace ZBase::os
