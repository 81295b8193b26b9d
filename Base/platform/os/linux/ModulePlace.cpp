#include <Base/platform/os/linux/ModulePlace.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <algorithm>

namespace ZBase::os {

bool ModulePlace::Find(std::uint64_t address, ModulePlace& place) {
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return false;
    place = {reinterpret_cast<std::uint64_t>(found.dlfo_map_start),
             reinterpret_cast<std::uint64_t>(found.dlfo_map_end), found.dlfo_link_map};
    // The loader maps a module in one piece. Only of the program, which the kernel maps, there may be holes
    // between the segments, and then each of them is found by itself.
    if (*found.dlfo_link_map->l_name != 0) return true;
    const auto* const headers = reinterpret_cast<const ElfW(Phdr)*>(getauxval(AT_PHDR));
    const std::uint64_t bias = found.dlfo_link_map->l_addr;
    const std::uint64_t page = getauxval(AT_PAGESZ);
    std::uint64_t start = UINT64_MAX;
    std::uint64_t end = 0;
    for (std::uint64_t i = 0; headers != nullptr && i != getauxval(AT_PHNUM); ++i) {
        if (headers[i].p_type != PT_LOAD) continue;
        start = std::min(start, (bias + headers[i].p_vaddr) & ~(page - 1));
        end = std::max(end, bias + headers[i].p_vaddr + headers[i].p_memsz);
    }
    if (address >= start && address < end) place = {start, std::max(end, place.end), found.dlfo_link_map};
    return true;
}

}  // namespace ZBase::os
