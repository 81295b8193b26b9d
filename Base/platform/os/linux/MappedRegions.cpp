#include <Base/platform/os/linux/MappedRegions.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace ZBase::os {

bool FindMappedRegion(std::uintptr_t address, MappedRegion& region) {
    struct Line {
        char* text = nullptr;
        std::size_t capacity = 0;
        ~Line() { std::free(text); }
    } line;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> maps(std::fopen("/proc/self/maps", "re"),
                                                               std::fclose);
    if (maps == nullptr) return false;
    while (getline(&line.text, &line.capacity, maps.get()) > 0) {
        std::uintptr_t start = 0;
        std::uintptr_t end = 0;
        int pathAt = 0;
        // start-end access offset device inode path
        if (std::sscanf(line.text, "%" SCNxPTR "-%" SCNxPTR " %*s %*s %*s %*s %n", &start, &end, &pathAt) !=
                2 ||
            address < start || address >= end) {
            continue;
        }
        region.start = start;
        region.path = line.text + pathAt;
        if (!region.path.empty() && region.path.back() == '\n') region.path.pop_back();
        return true;
    }
    return false;
}

}  // namespace ZBase::os
