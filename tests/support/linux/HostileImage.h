#pragma once

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// An image that is to make a reader of its tables work more than its octets are worth, or that says what it
/// does not have. It is refused at its end, as its table of dynamic entries has none, unless it is given one.
class HostileImage {
public:
    /// Entries that each need a module whose name is the same long text.
    void NeedOneLongName(std::size_t count, std::size_t length) {
        mNames += std::string(length, 'n');
        mEntries.insert(mEntries.end(), count, Entry(DT_NEEDED, 1));
    }

    /// One that needs a module of this name.
    void Need(const std::string& name) {
        mEntries.push_back(Entry(DT_NEEDED, 1 + mNames.size()));
        mNames += name + '\0';
    }

    /// Sections without content that all lie over the same octets of the file, which are zeros.
    void FillOneRange(std::size_t count, std::size_t length) {
        mZeros = length;
        mFilled = count;
    }

    /// Segments of a page, up to 250, and as many sections as asked for in the last of them.
    void AddSections(std::size_t count) {
        mSegments = count < 250 ? count : 250;
        mSections = count;
    }

    /// An entry of the dynamic section, behind those that an image has to have.
    void AddEntry(std::int64_t tag, std::uint64_t value) { mMoreEntries.push_back(Entry(tag, value)); }

    /// Behind the others.
    void AddSegment(const ElfW(Phdr) & segment) { mMoreSegments.push_back(segment); }
    void AddSection(const ElfW(Shdr) & section) { mMoreSections.push_back(section); }

    /// The words at `kWords` of the file and of the image.
    void SetWords(std::vector<std::uint32_t> words) {
        mWords = std::move(words);
        mWords.resize((mWords.size() + 1) / 2 * 2);  // what comes behind them is aligned
    }
    static constexpr std::uint64_t kWords = sizeof(ElfW(Ehdr));

    std::string Octets(bool hasEnd = false) const {
        ElfW(Ehdr) header{};
        std::memcpy(header.e_ident, ELFMAG, SELFMAG);
        header.e_ident[EI_CLASS] = ELFCLASS64;
        header.e_ident[EI_DATA] = ELFDATA2LSB;
        header.e_ident[EI_VERSION] = EV_CURRENT;
        header.e_type = ET_DYN;
#if defined(__x86_64__)
        header.e_machine = EM_X86_64;
#else
        header.e_machine = EM_AARCH64;
#endif
        header.e_phentsize = sizeof(ElfW(Phdr));
        header.e_shentsize = sizeof(ElfW(Shdr));
        header.e_phoff = kWords + mWords.size() * sizeof(std::uint32_t);
        header.e_phnum = static_cast<ElfW(Half)>(2 + mSegments + mMoreSegments.size());
        header.e_shnum = static_cast<ElfW(Half)>(mFilled + mSections + mMoreSections.size());

        const std::size_t dynamicAt = header.e_phoff + header.e_phnum * sizeof(ElfW(Phdr));
        std::vector<ElfW(Dyn)> entries = mEntries;
        const std::size_t namesAt =
            dynamicAt + (entries.size() + mMoreEntries.size() + 4) * sizeof(ElfW(Dyn));
        const std::string names = std::string(1, '\0') + mNames + '\0';
        const std::size_t symbolAt = (namesAt + names.size() + 7) / 8 * 8;
        const std::size_t zerosAt = symbolAt + sizeof(ElfW(Sym));
        const std::size_t mappedEnd = zerosAt + mZeros;
        entries.push_back(Entry(DT_STRTAB, namesAt));
        entries.push_back(Entry(DT_STRSZ, names.size()));
        entries.push_back(Entry(DT_SYMTAB, symbolAt));
        entries.insert(entries.end(), mMoreEntries.begin(), mMoreEntries.end());
        entries.push_back(Entry(hasEnd ? DT_NULL : DT_DEBUG, 0));

        std::vector<ElfW(Phdr)> segments(header.e_phnum);
        segments[0] = Segment(PT_LOAD, 0, mappedEnd);
        segments[1] = Segment(PT_DYNAMIC, dynamicAt, entries.size() * sizeof(ElfW(Dyn)));
        const std::uint64_t firstPage = (mappedEnd + kPage - 1) / kPage * kPage;
        for (std::size_t i = 0; i != mSegments; ++i) {
            segments[2 + i] = Segment(PT_LOAD, 0, 1);
            segments[2 + i].p_vaddr = firstPage + i * kPage;
        }
        std::copy(mMoreSegments.begin(), mMoreSegments.end(), segments.begin() + 2 + mSegments);
        std::vector<ElfW(Shdr)> sections(header.e_shnum);
        std::copy(mMoreSections.begin(), mMoreSections.end(), sections.begin() + mFilled + mSections);
        for (std::size_t i = 0; i != mFilled + mSections; ++i) {
            ElfW(Shdr)& section = sections[i];
            section.sh_flags = SHF_ALLOC;
            const bool isFilled = i < mFilled;
            section.sh_type = isFilled ? SHT_NOBITS : SHT_PROGBITS;
            section.sh_addr = isFilled ? zerosAt : segments[1 + mSegments].p_vaddr;
            section.sh_size = isFilled ? mZeros : 1;
        }
        header.e_shoff = mappedEnd;
        std::string octets;
        const auto append = [&octets](const void* data, std::size_t size) {
            octets.append(static_cast<const char*>(data), size);
        };
        append(&header, sizeof header);
        append(mWords.data(), mWords.size() * sizeof(std::uint32_t));
        append(segments.data(), segments.size() * sizeof segments[0]);
        append(entries.data(), entries.size() * sizeof entries[0]);
        octets += names;
        octets.resize(mappedEnd);
        append(sections.data(), sections.size() * sizeof(ElfW(Shdr)));
        return octets;
    }

    static constexpr std::uint64_t kPage = 4096;

    /// One with the same addresses in the file and in memory.
    static ElfW(Phdr) Segment(unsigned int type, std::uint64_t start, std::uint64_t size) {
        ElfW(Phdr) segment{};
        segment.p_type = type;
        segment.p_flags = PF_R;
        segment.p_offset = start;
        segment.p_vaddr = start;
        segment.p_filesz = size;
        segment.p_memsz = size;
        segment.p_align = kPage;
        return segment;
    }

private:
    static ElfW(Dyn) Entry(std::int64_t tag, std::uint64_t value) {
        ElfW(Dyn) entry{};
        entry.d_tag = tag;
        entry.d_un.d_val = value;
        return entry;
    }

    std::string mNames;
    std::vector<ElfW(Dyn)> mEntries;
    std::vector<ElfW(Dyn)> mMoreEntries;
    std::vector<ElfW(Phdr)> mMoreSegments;
    std::vector<ElfW(Shdr)> mMoreSections;
    std::vector<std::uint32_t> mWords;
    std::size_t mZeros = 0;
    std::size_t mFilled = 0;
    std::size_t mSegments = 0;
    std::size_t mSections = 0;
};

}  // namespace test
