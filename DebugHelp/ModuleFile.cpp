#include <DebugHelp/ModuleFile.h>

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <gelf.h>
#include <link.h>
#include <sys/auxv.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <Base/platform/os/linux/memory/OwnMemory.h>
#include <Base/platform/os/linux/modules/ModulePath.h>
#include <Base/platform/os/linux/modules/ModulePlace.h>

namespace DebugHelp {

namespace {

/// Visits the program headers that are mapped at a module's start; false if there are none.
template <class Visitor>
bool VisitSegments(const LoadedModule& module, Visitor visitor) {
    ElfW(Ehdr) header;
    std::memcpy(&header, reinterpret_cast<const void*>(module.start), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
    const auto* const segments = reinterpret_cast<const ElfW(Phdr)*>(module.start + header.e_phoff);
    for (unsigned int i = 0; i != header.e_phnum; ++i) visitor(segments[i]);
    return true;
}

bool IsKernels(const LoadedModule& module) {
    return module.start == getauxval(AT_SYSINFO_EHDR);
}

/// Whether the file has the mapped build id. Without an id it is assumed to.
bool IsSame(int file, std::string_view id) {
    if (id.empty()) return true;
    Elf* const elf = elf_begin(file, ELF_C_READ_MMAP, nullptr);
    const void* found = nullptr;
    const ssize_t size = elf == nullptr ? -1 : dwelf_elf_gnu_build_id(elf, &found);
    const bool isSame =
        size >= 0 && std::string_view(static_cast<const char*>(found), static_cast<std::size_t>(size)) == id;
    elf_end(elf);
    return isSame;
}

}  // namespace

bool LoadedModule::Find(std::uint64_t address, LoadedModule& module) {
    ZBase::os::ModulePlace place{};
    if (!ZBase::os::ModulePlace::Find(address, place)) return false;
    module = {place.start, place.end, place.map->l_addr, place.map->l_name};
    return true;
}

std::string_view LoadedModule::BuildId() const {
    ZBase::os::ModulePlace place{};
    return ZBase::os::ModulePlace::Find(start, place) ? place.BuildId() : std::string_view();
}

std::string LoadedModule::Path() const {
    ZBase::os::ModulePlace place{};
    if (IsKernels(*this)) return "[vdso]";
    return ZBase::os::ModulePlace::Find(start, place) ? ZBase::os::ModulePath(*place.map) : name;
}

ModuleFile::ModuleFile(const LoadedModule& module) : mModule(module), mPath(module.Path()) {}

ModuleFile::~ModuleFile() = default;

int ModuleFile::OpenFile(const std::string& path, bool isSure) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        mIsForWantOfFiles |= errno == EMFILE || errno == ENFILE || errno == ENOMEM;
        return -1;
    }
    if (isSure || IsSame(file, mModule.BuildId())) return file;
    close(file);
    return -1;
}

int ModuleFile::Open(Elf** inMemory) {
    elf_version(EV_CURRENT);
    *inMemory = nullptr;
    if (IsKernels(mModule)) {
        *inMemory = elf_memory(reinterpret_cast<char*>(mModule.start), mModule.end - mModule.start);
        return -1;
    }
    // This name opens the program even if its file was removed; the path also without /proc.
    int file = *mModule.name == 0 ? OpenFile("/proc/self/exe", true) : -1;
    if (file < 0) file = OpenFile(mPath, false);
    if (file < 0 && *mModule.name != 0) {
        std::uint64_t end = 0;
        VisitSegments(mModule, [&](const ElfW(Phdr) & segment) {
            if (segment.p_type != PT_LOAD || end != 0) return;
            const std::uint64_t page = getauxval(AT_PAGESZ);
            end = (mModule.bias + segment.p_vaddr + segment.p_filesz + page - 1) & ~(page - 1);
        });
        char name[64];
        std::snprintf(name, sizeof name, "/proc/self/map_files/%lx-%lx",
                      static_cast<unsigned long>(mModule.start), static_cast<unsigned long>(end));
        file = OpenFile(name, true);
    }
    if (file >= 0) return file;
    CopyMapped();
    if (!mCopy.empty()) *inMemory = elf_memory(mCopy.data(), mCopy.size());
    return -1;
}

// The segments have the same layout in memory as in the file. The section table is not part of them.
void ModuleFile::CopyMapped() {
    std::size_t size = 0;
    VisitSegments(mModule, [&](const ElfW(Phdr) & segment) {
        if (segment.p_type == PT_LOAD)
            size = std::max<std::size_t>(size, segment.p_offset + segment.p_filesz);
    });
    constexpr std::size_t kLargest = std::size_t{1} << 32;
    if (size < sizeof(ElfW(Ehdr)) || size > kLargest) return;
    mCopy.assign(size, 0);
    const auto isInside = [size](const ElfW(Phdr) & segment) {
        return segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset;
    };
    VisitSegments(mModule, [&](const ElfW(Phdr) & segment) {
        if (segment.p_type != PT_LOAD || !isInside(segment)) return;
        ZBase::os::CopyOwnMemory(mModule.bias + segment.p_vaddr, mCopy.data() + segment.p_offset,
                                 segment.p_filesz);
    });
    // The loader adds the module's place to addresses in the dynamic section, where it can be written.
    VisitSegments(mModule, [&](const ElfW(Phdr) & segment) {
        if (segment.p_type != PT_DYNAMIC || !isInside(segment)) return;
        char* const end =
            mCopy.data() + segment.p_offset + segment.p_filesz / sizeof(ElfW(Dyn)) * sizeof(ElfW(Dyn));
        for (char* at = mCopy.data() + segment.p_offset; at != end; at += sizeof(ElfW(Dyn))) {
            ElfW(Dyn) entry;
            std::memcpy(&entry, at, sizeof entry);
            if (entry.d_un.d_ptr < mModule.start || entry.d_un.d_ptr >= mModule.end) continue;
            entry.d_un.d_ptr -= mModule.bias;
            std::memcpy(at, &entry, sizeof entry);
        }
    });
    ElfW(Ehdr) header;
    std::memcpy(&header, mCopy.data(), sizeof header);
    header.e_shoff = 0;
    header.e_shnum = 0;
    header.e_shstrndx = 0;
    std::memcpy(mCopy.data(), &header, sizeof header);
}

}  // namespace DebugHelp
