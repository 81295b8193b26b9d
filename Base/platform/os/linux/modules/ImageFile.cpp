#include <Base/platform/os/linux/modules/ImageFile.h>

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>

namespace ZBase::os {

namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Section = ElfW(Shdr);
using Entry = ElfW(Dyn);

#if defined(__x86_64__)
constexpr unsigned int kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr unsigned int kMachine = EM_AARCH64;
#endif
constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char kEncoding = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
constexpr std::uint64_t kLargestImage = std::uint64_t{1} << 46;  // octets of address space

/// Whether `size` octets from `start` are within the `space` octets from 0.
bool IsWithin(std::uint64_t start, std::uint64_t size, std::uint64_t space) {
    return size <= space && start <= space - size;
}

/// A regular file, read by pread.
class File {
public:
    explicit File(const char* path) {
        struct stat status {};
        // Opening anything but a regular file may block, or have an effect.
        if (stat(path, &status) != 0) return;
        mIsThere = true;
        mIsRegular = S_ISREG(status.st_mode);
        if (!mIsRegular) return;
        mDescriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (mDescriptor < 0 || fstat(mDescriptor, &status) != 0 || status.st_size < 0) return;
        mIsRegular = S_ISREG(status.st_mode);
        mSize = static_cast<std::uint64_t>(status.st_size);
    }
    ~File() {
        if (mDescriptor >= 0) close(mDescriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return mDescriptor >= 0; }
    bool IsSomethingElse() const { return mIsThere && !mIsRegular; }
    std::uint64_t Size() const { return mSize; }

    /// Fills `target`; false at the end of the file.
    bool Read(std::uint64_t offset, void* target, std::size_t size) const {
        auto* out = static_cast<char*>(target);
        while (size != 0) {
            if (offset > static_cast<std::uint64_t>(LONG_MAX)) return false;
            const ssize_t count = pread(mDescriptor, out, size, static_cast<off_t>(offset));
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return false;
            out += count;
            offset += static_cast<std::uint64_t>(count);
            size -= static_cast<std::size_t>(count);
        }
        return true;
    }

private:
    int mDescriptor = -1;
    bool mIsThere = false;
    bool mIsRegular = false;
    std::uint64_t mSize = 0;
};

constexpr unsigned int kMostSegments = 256;

/// The loader's part of the dynamic section: values by tag, and the name offsets of needed modules.
struct Dynamic {
    std::optional<std::uint64_t> values[DT_NUM];
    std::optional<std::uint64_t> gnuHash, relativeCount, versionSymbols, versionNeeds, versionDefinitions;
    std::vector<std::uint64_t> needed;
};

class Image {
public:
    explicit Image(const File& file) : mFile(file) {}

    EImage Read(ImageNeeds& needs) {
        if (!mFile.Read(0, &mHeader, sizeof mHeader)) return EImage::kDamaged;
        if (std::memcmp(mHeader.e_ident, ELFMAG, SELFMAG) != 0) return EImage::kDamaged;
        if (mHeader.e_ident[EI_CLASS] != kClass || mHeader.e_ident[EI_DATA] != kEncoding ||
            mHeader.e_machine != kMachine)
            return EImage::kForeign;
        return HasHeaders() && HasSegments() && HasSections() && HasTables() && ReadDynamic() &&
                       HasDynamicTables() && ReadNeeds(needs)
                   ? EImage::kSound
                   : EImage::kDamaged;
    }

private:
    bool HasHeaders() {
        if (mHeader.e_phentsize != sizeof(Segment) || mHeader.e_phnum == 0 || mHeader.e_phnum > kMostSegments)
            return false;
        // The section table is the last part of a file, so a file without it was truncated.
        if (mHeader.e_shnum != 0 && mHeader.e_shentsize != sizeof(Section)) return false;
        mSections.resize(mHeader.e_shnum);
        if (!mFile.Read(mHeader.e_shoff, mSections.data(), mSections.size() * sizeof(Section))) return false;
        mSegments.resize(mHeader.e_phnum);
        return mFile.Read(mHeader.e_phoff, mSegments.data(), mSegments.size() * sizeof(Segment));
    }

    bool HasSegments() const {
        std::uint64_t end = 0;
        bool any = false;
        for (const Segment& segment : mSegments) {
            if (segment.p_type != PT_LOAD) continue;
            if (!IsWithin(segment.p_offset, segment.p_filesz, mFile.Size()) ||
                !IsWithin(segment.p_vaddr, segment.p_memsz, kLargestImage) ||
                segment.p_filesz > segment.p_memsz || segment.p_vaddr < end)
                return false;
            const std::uint64_t page = static_cast<std::uint64_t>(getpagesize());
            if (!std::has_single_bit(segment.p_align) || segment.p_align < page ||
                segment.p_align > kLargestImage ||
                ((segment.p_vaddr - segment.p_offset) & (segment.p_align - 1)) != 0)
                return false;
            end = segment.p_vaddr + segment.p_memsz;
            any = true;
        }
        return any;
    }

    // The loader does not read sections, but they repeat the layout of the segments.
    bool HasSections() const {
        std::vector<Range> zeros;
        const bool areThere = std::all_of(mSections.begin(), mSections.end(), [&](const Section& section) {
            if ((section.sh_flags & SHF_ALLOC) == 0 || section.sh_size == 0) return true;
            const bool isFilled = section.sh_type == SHT_NOBITS;
            if (isFilled && (section.sh_flags & SHF_TLS) != 0) return true;  // in each thread's own memory
            const Segment* const segment =
                isFilled
                    ? Find(section.sh_addr, section.sh_size, [](const Segment& s) { return s.p_memsz; })
                    : Find(section.sh_addr, section.sh_size, [](const Segment& s) { return s.p_filesz; });
            if (segment == nullptr) return false;
            const bool isCode = (section.sh_flags & SHF_EXECINSTR) != 0;
            const unsigned int rights =
                (isCode ? PF_X : PF_R) | ((section.sh_flags & SHF_WRITE) != 0 ? PF_W : 0u);
            if ((segment->p_flags & rights) != rights) return false;
            const std::uint64_t inSegment = section.sh_addr - segment->p_vaddr;
            if (!isFilled) return section.sh_offset == segment->p_offset + inSegment;
            // Of the file, only what the segment has too much.
            if (inSegment < segment->p_filesz)
                zeros.push_back(
                    {segment->p_offset + inSegment,
                     segment->p_offset + std::min(inSegment + section.sh_size, segment->p_filesz)});
            return true;
        });
        return areThere && AreZero(std::move(zeros));
    }

    struct Range {
        std::uint64_t start;
        std::uint64_t end;
    };

    // Programs rely on zeros there. If a segment has too much of the file in it there is other data instead.
    // Each octet is read once, however many ranges it is in.
    bool AreZero(std::vector<Range> ranges) const {
        std::ranges::sort(ranges, {}, &Range::start);
        char content[4096];
        std::uint64_t read = 0;
        for (const Range& range : ranges) {
            for (read = std::max(read, range.start); read < range.end;) {
                const std::size_t size =
                    static_cast<std::size_t>(std::min<std::uint64_t>(sizeof content, range.end - read));
                if (!mFile.Read(read, content, size) ||
                    !std::all_of(content, content + size, [](char octet) { return octet == 0; }))
                    return false;
                read += size;
            }
        }
        return true;
    }

    // Tables that are not loaded and are read at the segments' addresses.
    bool HasTables() const {
        for (const Segment& segment : mSegments) {
            switch (segment.p_type) {
                case PT_PHDR:
                    if (segment.p_offset != mHeader.e_phoff || segment.p_filesz > segment.p_memsz ||
                        !IsInFile(segment.p_vaddr, mSegments.size() * sizeof(Segment)))
                        return false;
                    break;
                case PT_TLS:
                    if (segment.p_filesz > segment.p_memsz || segment.p_memsz > kLargestImage ||
                        (segment.p_align != 0 && !std::has_single_bit(segment.p_align)) ||
                        segment.p_align > kLargestImage || !IsInFile(segment.p_vaddr, segment.p_filesz))
                        return false;
                    break;
                case PT_NOTE:
                case PT_GNU_PROPERTY:
                case PT_GNU_EH_FRAME:
                    if (segment.p_filesz > segment.p_memsz || !IsInFile(segment.p_vaddr, segment.p_memsz))
                        return false;
                    break;
                case PT_GNU_RELRO:
                    if (!IsInMemory(segment.p_vaddr, segment.p_memsz) || HidesData(segment)) return false;
                    break;
                default:
                    break;
            }
        }
        return true;
    }

    // The read-only-after-relocation range (PT_GNU_RELRO) is all in the file, except for the padding at its
    // end. So it is too long if other writable data begins in that padding.
    bool HidesData(const Segment& readOnly) const {
        const std::uint64_t end = readOnly.p_vaddr + readOnly.p_memsz;
        return std::any_of(mSections.begin(), mSections.end(), [&](const Section& section) {
            constexpr auto kData = SHF_ALLOC | SHF_WRITE;
            return (section.sh_flags & (kData | SHF_TLS)) == kData &&
                   section.sh_addr >= readOnly.p_vaddr + readOnly.p_filesz && section.sh_addr < end &&
                   section.sh_addr + section.sh_size != end;
        });
    }

    // The segment whose first `part(segment)` octets contain the range.
    template <class Part>
    const Segment* Find(std::uint64_t address, std::uint64_t size, Part part) const {
        for (const Segment& segment : mSegments) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                IsWithin(address - segment.p_vaddr, size, part(segment)))
                return &segment;
        }
        return nullptr;
    }

    bool IsInFile(std::uint64_t address, std::uint64_t size) const {
        return size == 0 || Find(address, size, [](const Segment& each) { return each.p_filesz; }) != nullptr;
    }

    // A range of pages may end after its segment.
    bool IsInMemory(std::uint64_t address, std::uint64_t size) const {
        return size == 0 || Find(address, size, [](const Segment& each) {
                                const std::uint64_t last = each.p_align - 1;  // at least that of a page
                                return ((each.p_vaddr + each.p_memsz + last) & ~last) - each.p_vaddr;
                            }) != nullptr;
    }

    bool ReadAt(std::uint64_t address, void* target, std::size_t size) const {
        const Segment* const segment = Find(address, size, [](const Segment& each) { return each.p_filesz; });
        return segment != nullptr &&
               mFile.Read(segment->p_offset + (address - segment->p_vaddr), target, size);
    }

    bool ReadDynamic() {
        const auto section = std::find_if(mSegments.rbegin(), mSegments.rend(),
                                          [](const Segment& each) { return each.p_type == PT_DYNAMIC; });
        if (section == mSegments.rend() || section->p_vaddr % alignof(Entry) != 0) return false;
        std::uint64_t address = section->p_vaddr;
        // The loader reads up to DT_NULL, whatever the size is.
        for (std::uint64_t left = section->p_filesz; left >= sizeof(Entry); left -= sizeof(Entry)) {
            Entry entry{};
            if (!ReadAt(address, &entry, sizeof entry)) return false;
            if (entry.d_tag == DT_NULL) return true;
            Note(entry);
            address += sizeof entry;
        }
        return false;
    }

    void Note(const Entry& entry) {
        const std::uint64_t value = entry.d_un.d_val;
        if (entry.d_tag == DT_NEEDED) {
            mDynamic.needed.push_back(value);
        } else if (entry.d_tag >= 0 && entry.d_tag < DT_NUM) {
            mDynamic.values[entry.d_tag] = value;
        } else if (entry.d_tag == DT_GNU_HASH) {
            mDynamic.gnuHash = value;
        } else if (entry.d_tag == DT_RELACOUNT) {
            mDynamic.relativeCount = value;
        } else if (entry.d_tag == DT_VERSYM) {
            mDynamic.versionSymbols = value;
        } else if (entry.d_tag == DT_VERNEED) {
            mDynamic.versionNeeds = value;
        } else if (entry.d_tag == DT_VERDEF) {
            mDynamic.versionDefinitions = value;
        }
    }

    /// Whether the table at the address of one tag, with the size of another, is within the mapped part of
    /// the file, or there is none.
    bool HasTable(int start, int size) const {
        const auto& address = mDynamic.values[start];
        const std::uint64_t octets = mDynamic.values[size].value_or(0);
        return !address.has_value() || IsInFile(*address, octets);
    }

    bool Is(int tag, std::uint64_t value) const { return mDynamic.values[tag].value_or(value) == value; }

    // A value that a table begins with must be in the file; the table's length is computed from it.
    bool BeginsInFile(const std::optional<std::uint64_t>& address, std::uint64_t size) const {
        return !address.has_value() || IsInFile(*address, size);
    }

    bool HasDynamicTables() const {
        const auto& values = mDynamic.values;
        if (!values[DT_STRTAB].has_value() || !values[DT_SYMTAB].has_value()) return false;
        return Is(DT_SYMENT, sizeof(ElfW(Sym))) && Is(DT_RELAENT, sizeof(ElfW(Rela))) &&
               Is(DT_RELRENT, sizeof(std::uintptr_t)) && Is(DT_PLTREL, DT_RELA) &&
               HasTable(DT_STRTAB, DT_STRSZ) && HasTable(DT_RELA, DT_RELASZ) &&
               HasTable(DT_JMPREL, DT_PLTRELSZ) && HasTable(DT_RELR, DT_RELRSZ) &&
               HasTable(DT_INIT_ARRAY, DT_INIT_ARRAYSZ) && HasTable(DT_FINI_ARRAY, DT_FINI_ARRAYSZ) &&
               BeginsInFile(values[DT_SYMTAB], sizeof(ElfW(Sym))) && BeginsInFile(values[DT_INIT], 1) &&
               BeginsInFile(values[DT_FINI], 1) && BeginsInFile(mDynamic.versionSymbols, 2) &&
               BeginsInFile(mDynamic.versionNeeds, sizeof(ElfW(Verneed))) &&
               BeginsInFile(mDynamic.versionDefinitions, sizeof(ElfW(Verdef))) && HasHash() &&
               mDynamic.relativeCount.value_or(0) <= values[DT_RELASZ].value_or(0) / sizeof(ElfW(Rela));
    }

    bool HasHash() const {
        std::uint32_t gnu[4];  // buckets, first symbol, words of the filter, its shift
        if (mDynamic.gnuHash.has_value() &&
            (!ReadAt(*mDynamic.gnuHash, gnu, sizeof gnu) || gnu[0] == 0 || !std::has_single_bit(gnu[2]) ||
             !IsInFile(*mDynamic.gnuHash, sizeof gnu + std::uint64_t{gnu[2]} * sizeof(std::uintptr_t) +
                                              std::uint64_t{gnu[0]} * sizeof(std::uint32_t))))
            return false;
        std::uint32_t old[2];  // buckets, chains
        const auto& address = mDynamic.values[DT_HASH];
        return !address.has_value() ||
               (ReadAt(*address, old, sizeof old) && old[0] != 0 &&
                IsInFile(*address, sizeof old + (std::uint64_t{old[0]} + old[1]) * sizeof(std::uint32_t)));
    }

    // A text of the table of texts that has at most `longest` octets.
    bool ReadName(std::uint64_t offset, std::size_t longest, std::string& name) const {
        const std::uint64_t size = mDynamic.values[DT_STRSZ].value_or(0);
        const std::uint64_t texts = mDynamic.values[DT_STRTAB].value_or(0);
        char piece[256];
        name.clear();
        while (offset < size && name.size() <= longest) {
            // The whole table is in the file.
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof piece, size - offset));
            if (!ReadAt(texts + offset, piece, count)) return false;
            char* const end = std::find(piece, piece + count, '\0');
            name.append(piece, end);
            if (end != piece + count) return name.size() <= longest;
            offset += count;
        }
        return false;
    }

    // No file has a longer name than PATH_MAX; without that bound many could share the end of one long text.
    bool ReadNeeds(ImageNeeds& needs) const {
        needs = {};
        for (const std::uint64_t offset : mDynamic.needed)
            if (!ReadName(offset, PATH_MAX, needs.names.emplace_back())) return false;
        constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();
        std::string own;
        const auto& soname = mDynamic.values[DT_SONAME];
        if (soname.has_value() && !ReadName(*soname, kAny, own)) return false;
        const auto& late = mDynamic.values[DT_RUNPATH];
        const auto& early = mDynamic.values[DT_RPATH];
        needs.pathIsLate = late.has_value();
        if (late.has_value()) return ReadName(*late, kAny, needs.path);
        return !early.has_value() || ReadName(*early, kAny, needs.path);
    }

    const File& mFile;
    Header mHeader{};
    std::vector<Segment> mSegments;
    std::vector<Section> mSections;
    Dynamic mDynamic;
};

}  // namespace

EImage ReadImage(const std::string& path, ImageNeeds& needs) {
    const File file(path.c_str());
    if (file.IsSomethingElse()) return EImage::kDamaged;
    return file.IsOpen() ? Image(file).Read(needs) : EImage::kUnseen;
}

bool HasHeadersForAnyStack(const std::string& path) {
    const File file(path.c_str());
    ElfW(Ehdr) header{};
    return file.IsOpen() && file.Read(0, &header, sizeof header) && header.e_phnum <= kMostSegments;
}

}  // namespace ZBase::os
