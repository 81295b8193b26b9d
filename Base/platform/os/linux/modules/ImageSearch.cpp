#include <Base/platform/os/linux/modules/ImageSearch.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include <Base/platform/os/linux/modules/ImageFile.h>

namespace ZBase::os {

namespace {

// The source of a folder in the search path.
enum class EWish { Image, User, System };

struct Folder {
    std::string path;
    EWish wish;
};
using Folders = std::vector<Folder>;

/// The folders that the loader searches for this library, in its order.
Folders OwnFolders() {
    Dl_info info{};
    void* self = nullptr;
    Dl_serinfo head{};
    if (dladdr1(reinterpret_cast<const void*>(&OwnFolders), &info, &self, RTLD_DL_LINKMAP) == 0 ||
        dlinfo(self, RTLD_DI_SERINFOSIZE, &head) != 0)
        return {};
    // The record ends with an array of variable length, followed by the names.
    std::vector<std::max_align_t> storage(head.dls_size / sizeof(std::max_align_t) + 1);
    auto* const list = reinterpret_cast<Dl_serinfo*>(storage.data());
    *list = head;
    if (dlinfo(self, RTLD_DI_SERINFO, list) != 0) return {};
    Folders folders;
    constexpr unsigned int kOfTheUser = 0x02;   // LA_SER_LIBPATH
    constexpr unsigned int kOfTheImage = 0x04;  // LA_SER_RUNPATH
    for (unsigned int i = 0; i != list->dls_cnt; ++i) {
        const unsigned int flags = list->dls_serpath[i].dls_flags;
        const EWish wish = (flags & kOfTheImage) != 0  ? EWish::Image
                           : (flags & kOfTheUser) != 0 ? EWish::User
                                                       : EWish::System;
        folders.push_back({list->dls_serpath[i].dls_name, wish});
    }
    return folders;
}

/// A path of folders separated by ":", from an image in the directory `origin`.
Folders Split(std::string_view path, const std::string& origin) {
    Folders folders;
    while (!path.empty()) {
        std::string folder(path.substr(0, path.find(':')));
        path.remove_prefix(std::min(folder.size() + 1, path.size()));
        for (const std::string_view mark : {"$ORIGIN", "${ORIGIN}"}) {
            if (const std::size_t at = folder.find(mark); at != std::string::npos)
                folder.replace(at, mark.size(), origin);
        }
        folders.push_back({std::move(folder), EWish::Image});
    }
    return folders;
}

Folders FoldersFor(const ImageNeeds& needs, const std::string& file, const Folders& own) {
    const std::size_t slash = file.rfind('/');
    Folders asked = Split(needs.path, slash == std::string::npos ? "." : file.substr(0, slash));
    const auto add = [&own, &asked](EWish wish) {
        std::copy_if(own.begin(), own.end(), std::back_inserter(asked),
                     [wish](const Folder& folder) { return folder.wish == wish; });
    };
    if (needs.pathIsLate) {
        // The run paths of the modules that load this one are not used then.
        Folders wished;
        wished.swap(asked);
        add(EWish::User);
        asked.insert(asked.end(), wished.begin(), wished.end());
    } else {
        add(EWish::Image);
        add(EWish::User);
    }
    add(EWish::System);
    return asked;
}

/// The soname of a loaded module; null if it has none.
const char* OwnName(const dl_phdr_info& info) {
    for (int i = 0; i != info.dlpi_phnum; ++i) {
        if (info.dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
        std::uintptr_t texts = 0;
        const ElfW(Dyn)* name = nullptr;
        auto* entry = reinterpret_cast<const ElfW(Dyn)*>(info.dlpi_addr + info.dlpi_phdr[i].p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == DT_STRTAB) texts = entry->d_un.d_ptr;
            if (entry->d_tag == DT_SONAME) name = entry;
        }
        if (texts == 0 || name == nullptr) return nullptr;
        if (texts < info.dlpi_addr) texts += info.dlpi_addr;  // not relocated by the loader
        return reinterpret_cast<const char*>(texts + name->d_un.d_val);
    }
    return nullptr;
}

/// Whether the loader has a module of that name already, and so opens no file for it. The file name alone
/// does not count.
bool IsInProcess(const std::string& name) {
    const auto isIt = [](dl_phdr_info* info, std::size_t, void* argument) {
        const auto& wanted = *static_cast<const std::string*>(argument);
        const char* const own = OwnName(*info);
        return static_cast<int>(info->dlpi_name == wanted || (own != nullptr && own == wanted));
    };
    return dl_iterate_phdr(isIt, const_cast<std::string*>(&name)) != 0;
}

/// The same for a name passed to `dlopen`, which the loader compares with all earlier ones. It reads only the
/// headers of a file for that.
bool IsLoaded(const char* name) {
    void* const module = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
    if (module != nullptr) dlclose(module);
    return module != nullptr;
}

// Opening anything else may block in the loader.
bool IsRegularFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Images of files. Each file is read once, or images that need each other would be read for each such need.
class Images {
public:
    /// What a file is, and at the first time what it needs.
    EImage Read(const std::string& file, ImageNeeds& needs) {
        const auto [known, isNew] = mKnown.try_emplace(file, EImage::kUnseen);
        if (isNew) known->second = ReadImage(file, needs);
        return known->second;
    }

private:
    std::map<std::string, EImage> mKnown;
};

/// An image to check, and the folders for its dependencies.
struct Visit {
    std::string name;
    std::shared_ptr<const Folders> folders;
};

class Walk {
public:
    bool IsSafe(const std::string& name) {
        mVisits.push_back({name, std::make_shared<const Folders>(mOwn)});
        while (!mVisits.empty()) {
            const Visit visit = std::move(mVisits.back());
            mVisits.pop_back();
            if (!Take(visit)) {
                return visit.name == name && IsRegularFile(mFound) && HasHeadersForAnyStack(mFound) &&
                       IsLoaded(name.c_str());
            }
        }
        return true;
    }

    /// The file that was checked last.
    const std::string& Found() const { return mFound; }

private:
    // Adds the dependencies of an image. False if it is damaged.
    bool Take(const Visit& visit) {
        ImageNeeds needs;
        std::string file = visit.name;
        EImage image = EImage::kUnseen;
        if (file.find('/') != std::string::npos) {
            image = mImages.Read(file, needs);
        } else if (!IsInProcess(file)) {
            image = Search(visit, file, needs);
        }
        if (image == EImage::kSound && mSeen.insert(file).second) {
            const auto folders = std::make_shared<const Folders>(FoldersFor(needs, file, mOwn));
            // Each once, or a damaged table could have one file read any number of times.
            const std::set<std::string> names(needs.names.begin(), needs.names.end());
            for (const std::string& name : names) mVisits.push_back({name, folders});
        }
        mFound = std::move(file);
        return image != EImage::kDamaged;
    }

    // The loader uses the first file of the name that is for this machine.
    EImage Search(const Visit& visit, std::string& file, ImageNeeds& needs) {
        for (const Folder& folder : *visit.folders) {
            file = (folder.path.empty() ? "." : folder.path) + "/" + visit.name;
            const EImage image = mImages.Read(file, needs);
            if (image == EImage::kDamaged || image == EImage::kSound) return image;
        }
        return EImage::kUnseen;
    }

    const Folders mOwn = OwnFolders();
    Images mImages;
    std::vector<Visit> mVisits;
    std::set<std::string> mSeen;
    std::string mFound;
};

}  // namespace

bool IsSafeToLoad(const std::string& name, std::string& damaged) {
    Walk walk;
    if (walk.IsSafe(name)) return true;
    damaged = walk.Found();
    return false;
}

}  // namespace ZBase::os
