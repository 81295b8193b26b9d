#include <Base/platform/os/Modules.h>
#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/linux/ErrorCodes.h>
#include <Base/platform/os/linux/ImageSearch.h>
#include <Base/platform/os/linux/MappedRegions.h>
#include <Base/platform/os/linux/ModuleExports.h>
#include <Base/platform/os/linux/ModulePath.h>
#include <Base/platform/os/linux/NativeText.h>
#include <Base/platform/os/linux/TextBuffer.h>

#include <dlfcn.h>
#include <link.h>
#include <locale.h>
#include <unistd.h>
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace ZBase::os {

namespace {

// A module of the process as the loader sees it: the span of its segments, and its name, which is empty for
// the program and may be relative to a directory that was current once.
struct LoadedModule {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    std::string name;
};

std::uintptr_t PageStart(std::uintptr_t address) {
    return address & ~(static_cast<std::uintptr_t>(getpagesize()) - 1);
}

LoadedModule Describe(const dl_phdr_info& info) {
    LoadedModule module{UINTPTR_MAX, 0, info.dlpi_name};
    for (int i = 0; i != info.dlpi_phnum; ++i) {
        const auto& segment = info.dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        const std::uintptr_t start = info.dlpi_addr + segment.p_vaddr;
        module.start = std::min(module.start, PageStart(start));
        module.end = std::max(module.end, start + segment.p_memsz);
    }
    return module;
}

/// Puts the first module that `matches` into `found`.
template <class Predicate>
bool FindModule(Predicate matches, LoadedModule& found) {
    struct Search {
        Predicate& matches;
        LoadedModule& found;
    } search{matches, found};
    return dl_iterate_phdr(
               [](dl_phdr_info* info, std::size_t, void* argument) {
                   auto* in = static_cast<Search*>(argument);
                   LoadedModule module = Describe(*info);
                   if (!in->matches(module)) return 0;
                   in->found = std::move(module);
                   return 1;
               },
               &search) != 0;
}

// The loader's own words for its last failure, in English whatever the locale is. They are put together only
// here, so the locale need not change while the module's code runs.
std::string LoaderComplaint() {
    const locale_t english = newlocale(LC_ALL_MASK, "C", nullptr);  // always there, and not made anew
    const locale_t users = uselocale(english);
    const char* complaint = dlerror();
    std::string text = complaint == nullptr ? "" : complaint;
    uselocale(users);
    return text;
}

// The loader says of an image for another machine that it is not there.
bool IsThereAllTheSame(const std::string& file, std::string_view complaint) {
    return file.find('/') != std::string::npos && complaint.starts_with(file + ": ") &&
           access(file.c_str(), F_OK) == 0;
}

// The loader reports in words only.
Win32Code LoadFailure(const std::string& file, std::string_view complaint) {
    const auto says = [complaint](std::string_view words) {
        return complaint.find(words) != std::string_view::npos;
    };
    if (says("cannot open shared object file")) {
        if (says("Permission denied")) return kAccessDenied;
        if (says("Too many open files")) return kTooManyOpenFiles;
        return IsThereAllTheSame(file, complaint) ? kBadImage : kModuleNotFound;
    }
    if (says("undefined symbol") || says("symbol lookup error") || says("not found (required by")) {
        return kProcedureNotFound;
    }
    if (says("annot allocate memory") || says("out of memory")) return kNotEnoughMemory;
    return kBadImage;
}

// Without a lock or the heap, unlike a visit of all modules.
bool FindModuleAround(const void* address, dl_find_object& module) {
    return _dl_find_object(const_cast<void*>(address), &module) == 0;
}

}  // namespace

const unsigned short* ComponentEnding() {
    static constexpr unsigned short ending[] = {'_', '6', '4', '.', 's', 'o', 0};
    return ending;
}

Module LoadModule(const unsigned short* fileName) {
    const std::string file = ToNative(fileName);
    if (!IsSafeToLoad(file)) {
        SetLastCode(kBadImage);
        return nullptr;
    }
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) SetLastCode(LoadFailure(file, LoaderComplaint()));
    return module;
}

void FreeModule(Module module) {
    dlclose(module);
}

Module FindLoadedModule(const char* name) {
    const std::string file = std::string("lib") + name + ".so";
    LoadedModule found;
    const auto isNamed = [&file](const LoadedModule& module) {
        return module.name.substr(module.name.rfind('/') + 1) == file;
    };
    if (!FindModule(isNamed, found)) {
        SetLastCode(kModuleNotFound);
        return nullptr;
    }
    return dlopen(found.name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
}

void* FindFunction(Module module, const char* name) {
    // The loader's search goes on in the modules that this one needs; what they export is not its own.
    if (!Exports(*static_cast<const link_map*>(module), name)) {
        SetLastCode(kProcedureNotFound);
        return nullptr;
    }
    dlerror();
    void* const address = dlsym(module, name);
    if (address == nullptr) SetLastCode(dlerror() == nullptr ? kSuccess : kProcedureNotFound);
    return address;
}

bool FindAllocationBase(const void* address, const void*& base) {
#if defined(__x86_64__)
    constexpr unsigned int userAddressBits = 47;
#else
    constexpr unsigned int userAddressBits = 48;
#endif
    const auto value = reinterpret_cast<std::uintptr_t>(address);
    base = nullptr;
    if (value >> userAddressBits != 0) {
        SetLastCode(kInvalidParameter);
        return false;
    }
    dl_find_object module;
    MappedRegion region{};
    if (FindModuleAround(address, module)) {
        base = module.dlfo_map_start;
    } else if (FindMappedRegion(value, region)) {
        base = reinterpret_cast<const void*>(region.start);
    }
    return true;
}

unsigned int GetModulePath(Module module, unsigned short* path, unsigned int capacity) {
    return PutTextCut(ModulePath(*static_cast<const link_map*>(module)), path, capacity);
}

unsigned int GetModulePathAt(const void* base, unsigned short* path, unsigned int capacity) {
    dl_find_object module;
    if (!FindModuleAround(base, module) || module.dlfo_map_start != base) {
        SetLastCode(kModuleNotFound);
        return 0;
    }
    return GetModulePath(module.dlfo_link_map, path, capacity);
}

}  // namespace ZBase::os
