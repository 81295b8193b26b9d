#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/memory/MappedRegions.h>
#include <Base/platform/os/linux/modules/ImageSearch.h>
#include <Base/platform/os/linux/modules/ModuleExports.h>
#include <Base/platform/os/linux/modules/ModulePath.h>
#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/linux/text/TextBuffer.h>
#include <Base/platform/os/modules/Modules.h>

#include <dlfcn.h>
#include <link.h>
#include <locale.h>
#include <sys/mman.h>
#include <unistd.h>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace ZBase::os {

namespace {

// A search for a module by name, and its result. The loader holds its lock during the search, so nothing may
// be thrown.
struct NameSearch {
    const std::string& file;
    char* found;  // on the C heap; may be relative to an earlier current directory
};

int VisitName(dl_phdr_info* info, std::size_t, void* argument) noexcept {
    auto& search = *static_cast<NameSearch*>(argument);
    const std::string_view name(info->dlpi_name);
    if (name.substr(name.rfind('/') + 1) != search.file) return 0;
    search.found = strdup(info->dlpi_name);
    return 1;
}

// The loader's text for its last failure, in English whatever the locale is. It is formatted only here, so
// the locale need not change while the module's code runs.
std::string LoaderComplaint() {
    const locale_t english = newlocale(LC_ALL_MASK, "C", nullptr);  // predefined, so this can't fail
    const locale_t users = uselocale(english);
    const char* const complaint = dlerror();
    uselocale(users);
    return complaint == nullptr ? "" : complaint;
}

// For an image of another machine the loader says that it is not there.
bool IsThereAllTheSame(const std::string& file, std::string_view complaint) {
    return file.find('/') != std::string::npos && complaint.starts_with(file + ": ") &&
           access(file.c_str(), F_OK) == 0;
}

// The loader reports reasons as text only.
Win32Code LoadFailure(const std::string& file, std::string_view complaint) {
    const auto says = [complaint](std::string_view words) {
        return complaint.find(words) != std::string_view::npos;
    };
    if (says("cannot open shared object file")) {
        if (says("Permission denied")) return kAccessDenied;
        if (says("Too many open files")) return kTooManyOpenFiles;
        if (says("File name too long")) return kNameTooLong;
        return IsThereAllTheSame(file, complaint) ? kBadImage : kModuleNotFound;
    }
    if (says("undefined symbol") || says("symbol lookup error") || says("not found (required by")) {
        return kProcedureNotFound;
    }
    if (says("annot allocate memory") || says("out of memory")) return kNotEnoughMemory;
    return kBadImage;
}

bool IsMapped(std::uintptr_t page) {
    unsigned char isResident = 0;
    return mincore(reinterpret_cast<void*>(page), 1, &isResident) == 0;
}

}  // namespace

const unsigned short* ComponentEnding() {
    static constexpr unsigned short ending[] = {'_', '6', '4', '.', 's', 'o', 0};
    return ending;
}

Module LoadModule(const unsigned short* fileName, std::basic_string<unsigned short>& words) {
    const std::string file = ToNative(fileName);
    // The loader copies the name to its stack. No file has a name of this length.
    if (file.size() >= PATH_MAX) {
        SetLastCode(kNameTooLong);
        return nullptr;
    }
    if (std::string damaged; !IsSafeToLoad(file, damaged)) {
        words = FromNative(
            (damaged + ": not given to the loader, since it is no image or a damaged one").c_str());
        SetLastCode(kBadImage);
        return nullptr;
    }
    void* module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        const std::string complaint = LoaderComplaint();
        words = FromNative(complaint.c_str());
        SetLastCode(LoadFailure(file, complaint));
    }
    return module;
}

void FreeModule(Module module) {
    dlclose(module);
}

Module FindLoadedModule(const char* name) {
    const std::string file = std::string("lib") + name + ".so";
    NameSearch search{file, nullptr};
    const bool isThere = dl_iterate_phdr(VisitName, &search) != 0;
    if (search.found == nullptr) {
        SetLastCode(isThere ? kNotEnoughMemory : kModuleNotFound);
        return nullptr;
    }
    const std::unique_ptr<char, void (*)(void*)> owner(search.found, std::free);
    return dlopen(search.found, RTLD_LAZY | RTLD_NOLOAD);
}

void* FindFunction(Module module, const char* name) {
    // The loader's search includes the dependencies of this module, whose exports are not its own.
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
    ModulePlace module{};
    MappedRegion region{};
    if (ModulePlace::Find(value, module)) {
        base = reinterpret_cast<const void*>(module.start);
    } else if (FindMappedRegion(value, region)) {
        base = reinterpret_cast<const void*>(region.start);
    } else if (const std::uintptr_t page = value & ~(static_cast<std::uintptr_t>(getpagesize()) - 1);
               IsMapped(page)) {
        base = reinterpret_cast<const void*>(page);  // mapped, but the list of mappings is unreadable
    }
    return true;
}

unsigned int GetModulePath(Module module, unsigned short* path, unsigned int capacity) {
    return PutTextCut(ModulePath(*static_cast<const link_map*>(module)), path, capacity);
}

unsigned int GetModulePathAt(const void* base, unsigned short* path, unsigned int capacity) {
    ModulePlace module{};
    const auto start = reinterpret_cast<std::uint64_t>(base);
    if (!ModulePlace::Find(start, module) || module.start != start) {
        SetLastCode(kModuleNotFound);
        return 0;
    }
    return PutTextCut(ModulePath(*module.map), path, capacity);
}

}  // namespace ZBase::os
