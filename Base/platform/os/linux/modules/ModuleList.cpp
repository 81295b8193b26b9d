#include <Base/platform/os/modules/ModuleList.h>

#include <link.h>
#include <sys/auxv.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/modules/Modules.h>

namespace ZBase::os {

namespace {

bool FindModuleAt(std::uint64_t base, ModulePlace& module) {
    if (ModulePlace::Find(base, module) && module.start == base) return true;
    SetLastCode(kModuleNotFound);
    return false;
}

/// The loadable segments of a module whose headers are mapped at its start.
struct Segments {
    const ElfW(Phdr) * first;
    unsigned int count;
    std::uint64_t bias;  // the lowest address in the file, which is mapped at the base
};

bool FindSegments(std::uint64_t base, Segments& segments) {
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(base);
    if (std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return false;
    segments = {reinterpret_cast<const ElfW(Phdr)*>(base + header->e_phoff), header->e_phnum, 0};
    for (unsigned int i = 0; i != segments.count; ++i) {
        if (segments.first[i].p_type != PT_LOAD) continue;
        segments.bias = segments.first[i].p_vaddr & ~(getauxval(AT_PAGESZ) - 1);
        return true;
    }
    return false;
}

struct ModuleCollector {
    std::uint64_t* modules;
    std::uint32_t capacity;
    std::uint32_t count;
};

int CollectModule(dl_phdr_info* information, std::size_t, void* argument) {
    auto& collector = *static_cast<ModuleCollector*>(argument);
    for (unsigned int i = 0; i != information->dlpi_phnum; ++i) {
        if (information->dlpi_phdr[i].p_type != PT_LOAD) continue;
        ModulePlace module{};
        if (!ModulePlace::Find(information->dlpi_addr + information->dlpi_phdr[i].p_vaddr, module)) return 0;
        if (collector.count < collector.capacity) collector.modules[collector.count] = module.start;
        ++collector.count;
        return 0;
    }
    return 0;
}

}  // namespace

bool GetModuleSection(std::uint64_t base, unsigned int index, ModuleSection& section) {
    ModulePlace module{};
    Segments segments{};
    if (!FindModuleAt(base, module) || !FindSegments(base, segments)) return false;
    for (unsigned int i = 0; i != segments.count; ++i) {
        const auto& segment = segments.first[i];
        if (segment.p_type != PT_LOAD || index-- != 0) continue;
        section = {static_cast<std::uint32_t>(segment.p_vaddr - segments.bias),
                   static_cast<std::uint32_t>(segment.p_memsz), static_cast<std::uint32_t>(segment.p_filesz)};
        return true;
    }
    return false;
}

bool EnumerateModules(std::uint64_t* modules, std::uint32_t bytes, std::uint32_t& needed) {
    ModuleCollector collector{modules, static_cast<std::uint32_t>(bytes / sizeof *modules), 0};
    dl_iterate_phdr(CollectModule, &collector);
    needed = static_cast<std::uint32_t>(collector.count * sizeof *modules);
    return true;
}

std::uint32_t GetModuleBaseName(std::uint64_t base, char* name, std::uint32_t capacity) {
    unsigned short wide[PATH_MAX];
    if (capacity == 0 || GetModulePathAt(reinterpret_cast<const void*>(base), wide, PATH_MAX) == 0) return 0;
    const std::string path = ToNative(wide);
    const std::size_t start = path.rfind('/') + 1;
    const std::size_t length = std::min<std::size_t>(path.size() - start, capacity - 1);
    std::memcpy(name, path.data() + start, length);
    name[length] = 0;
    return static_cast<std::uint32_t>(length);
}

bool GetModuleInformation(std::uint64_t base, ModuleInformation& information) {
    ModulePlace module{};
    if (!FindModuleAt(base, module)) return false;
    information = {base, module.end - module.start};
    return true;
}

}  // namespace ZBase::os
