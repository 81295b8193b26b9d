#include <Base/platform/os/linux/modules/ImageFile.h>
#include <Base/platform/os/linux/modules/ImageSearch.h>

#include <gtest/gtest.h>
#include <link.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TemporaryFile.h"
#include "tests/support/linux/HostileImage.h"

namespace {

// Octets that were asked for, and how often.
std::size_t gOctets = 0;
std::size_t gReads = 0;

}  // namespace

// Stands in front of the C library's.
extern "C" [[gnu::visibility("default")]] ssize_t pread(int file, void* target, std::size_t size,
                                                        off_t offset) {
    gOctets += size;
    ++gReads;
    return syscall(SYS_pread64, file, target, size, offset);
}

namespace {

using namespace ZBase;

// Every image that the loader accepts passes, whatever its linker.
TEST(ImageFile, EveryModuleOfThisProcessIsSound) {
    std::vector<std::string> files = {"/proc/self/exe"};
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* found) {
            if (*info->dlpi_name == '/')
                static_cast<std::vector<std::string>*>(found)->emplace_back(info->dlpi_name);
            return 0;
        },
        &files);
    ASSERT_GE(files.size(), 3u);
    for (const std::string& file : files) {
        os::ImageNeeds needs;
        EXPECT_EQ(os::ReadImage(file, needs), os::EImage::kSound) << file;
    }
}

os::EImage Read(const std::string& octets, os::ImageNeeds& needs) {
    const test::TemporaryFile file;
    std::ofstream(file.Path(), std::ios::binary) << octets;
    gOctets = 0;
    gReads = 0;
    return os::ReadImage(file.Path(), needs);
}

// Each would be read for each need of each other.
TEST(ImageFile, OfModulesThatNeedEachOtherEachIsReadOnce) {
    constexpr int kModules = 16;
    char folder[] = "/tmp/zbase-images-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const auto file = [&](int number) {
        return std::string(folder) + "/lib" + std::to_string(number) + ".so";
    };
    for (int i = 0; i != kModules; ++i) {
        test::HostileImage image;
        for (int needed = 0; needed != kModules; ++needed) image.Need(file(needed));
        std::ofstream(file(i), std::ios::binary) << image.Octets(true);
    }
    gReads = 0;
    os::ImageNeeds needs;
    EXPECT_EQ(os::ReadImage(file(0), needs), os::EImage::kSound);
    EXPECT_EQ(needs.names.size(), static_cast<std::size_t>(kModules));
    const std::size_t ofOne = gReads;
    gReads = 0;
    std::string damaged;
    EXPECT_TRUE(os::IsSafeToLoad(file(0), damaged)) << damaged;
    EXPECT_LE(gReads, kModules * ofOne);
    EXPECT_GT(gReads, ofOne);
    std::filesystem::remove_all(folder);
}

// Each entry of a table would have the same long text read anew.
TEST(ImageFile, NeedsThatShareALongTextAreRefusedAtTheFirst) {
    test::HostileImage image;
    image.NeedOneLongName(1000, 100'000);
    const std::string octets = image.Octets(true);
    os::ImageNeeds needs;
    EXPECT_EQ(Read(octets, needs), os::EImage::kDamaged);
    EXPECT_LE(gOctets, octets.size());
}

TEST(ImageFile, ANameOfTheLongestPathIsReadByPieces) {
    for (const std::size_t length : {1, 255, 256, 257, 4096}) {
        test::HostileImage image;
        image.NeedOneLongName(2, length);
        os::ImageNeeds needs;
        EXPECT_EQ(Read(image.Octets(true), needs), os::EImage::kSound) << length;
        EXPECT_EQ(needs.names, std::vector<std::string>(2, std::string(length, 'n')));
        EXPECT_LE(gReads, 60u) << length;
    }
    test::HostileImage image;
    image.NeedOneLongName(1, 4097);
    os::ImageNeeds needs;
    EXPECT_EQ(Read(image.Octets(true), needs), os::EImage::kDamaged);
}

TEST(ImageFile, SectionsOverTheSameOctetsHaveThemReadOnce) {
    test::HostileImage image;
    image.FillOneRange(1000, 100'000);
    std::string octets = image.Octets(true);
    os::ImageNeeds needs;
    EXPECT_EQ(Read(octets, needs), os::EImage::kSound);
    EXPECT_LE(gOctets, 2 * octets.size());
    // All of them are zeros.
    octets[octets.size() - 1000 * sizeof(ElfW(Shdr)) - 1] = 1;
    EXPECT_EQ(Read(octets, needs), os::EImage::kDamaged);
}

TEST(ImageFile, ManySectionsAreSoundAndOneBeyondTheLastSegmentIsNot) {
    test::HostileImage image;
    image.AddSections(500);
    std::string octets = image.Octets(true);
    os::ImageNeeds needs;
    EXPECT_EQ(Read(octets, needs), os::EImage::kSound);
    ElfW(Shdr) section{};
    char* const last = octets.data() + octets.size() - sizeof section;
    std::memcpy(&section, last, sizeof section);
    section.sh_size = 2;
    std::memcpy(last, &section, sizeof section);
    EXPECT_EQ(Read(octets, needs), os::EImage::kDamaged);
}

// An image with one thing said of it that may not be, beside the same thing as it may be. All is at its own
// address in the file, which is less than a page.

constexpr std::uint64_t kBehindIt = 1 << 20;
constexpr std::uint64_t kNoAddress = std::uint64_t{1} << 47;

constexpr os::EImage kSound = os::EImage::kSound;
constexpr os::EImage kDamaged = os::EImage::kDamaged;
constexpr std::uint64_t kWords = test::HostileImage::kWords;

/// A change of an image, and what it is then.
struct Row {
    const char* what;
    std::function<void(test::HostileImage& image)> change;
    os::EImage image;
};

std::ostream& operator<<(std::ostream& stream, const Row& row) {
    return stream << row.what;
}

class ImageFileOfAChange : public testing::TestWithParam<Row> {};

TEST_P(ImageFileOfAChange, IsSoundIfAllIsInTheFile) {
    test::HostileImage image;
    GetParam().change(image);
    os::ImageNeeds needs;
    EXPECT_EQ(Read(image.Octets(true), needs), GetParam().image);
}

/// Tags and values of the dynamic section, and the words at `kWords`.
Row Entries(const char* what, const std::vector<std::pair<std::int64_t, std::uint64_t>>& entries,
            os::EImage image, const std::vector<std::uint32_t>& words = {}) {
    const auto change = [=](test::HostileImage& changed) {
        changed.NeedOneLongName(1, 3);
        changed.SetWords(words);
        for (const auto& [tag, value] : entries) changed.AddEntry(tag, value);
    };
    return {what, change, image};
}

INSTANTIATE_TEST_SUITE_P(
    Entries, ImageFileOfAChange,
    testing::ValuesIn(std::vector<Row>{
        Entries("no more", {}, kSound),
        Entries("symbols of 24 octets", {{DT_SYMENT, 24}}, kSound),
        Entries("symbols of 23", {{DT_SYMENT, 23}}, kDamaged),
        Entries("relocations of 24", {{DT_RELAENT, 24}}, kSound),
        Entries("relocations of 16", {{DT_RELAENT, 16}}, kDamaged),
        Entries("packed relocations of 8", {{DT_RELRENT, 8}}, kSound),
        Entries("packed relocations of 4", {{DT_RELRENT, 4}}, kDamaged),
        Entries("calls bound by DT_RELA", {{DT_PLTREL, DT_RELA}}, kSound),
        Entries("calls bound by DT_REL", {{DT_PLTREL, DT_REL}}, kDamaged),
        Entries("symbols behind it", {{DT_SYMTAB, kBehindIt}}, kDamaged),
        Entries("names longer than it", {{DT_STRSZ, kBehindIt}}, kDamaged),
        Entries("relocations", {{DT_RELA, 0}, {DT_RELASZ, 48}, {DT_RELACOUNT, 2}}, kSound),
        Entries("more plain ones than there are", {{DT_RELA, 0}, {DT_RELASZ, 48}, {DT_RELACOUNT, 3}},
                kDamaged),
        Entries("plain ones of none", {{DT_RELACOUNT, 1}}, kDamaged),
        Entries("relocations longer than it", {{DT_RELA, 0}, {DT_RELASZ, kBehindIt}}, kDamaged),
        Entries("calls", {{DT_JMPREL, 0}, {DT_PLTRELSZ, 24}}, kSound),
        Entries("calls longer than it", {{DT_JMPREL, 0}, {DT_PLTRELSZ, kBehindIt}}, kDamaged),
        Entries("packed relocations", {{DT_RELR, 0}, {DT_RELRSZ, 8}}, kSound),
        Entries("packed relocations longer than it", {{DT_RELR, 0}, {DT_RELRSZ, kBehindIt}}, kDamaged),
        Entries("constructors", {{DT_INIT_ARRAY, 0}, {DT_INIT_ARRAYSZ, 8}}, kSound),
        Entries("constructors longer than it", {{DT_INIT_ARRAY, 0}, {DT_INIT_ARRAYSZ, kBehindIt}}, kDamaged),
        Entries("destructors", {{DT_FINI_ARRAY, 0}, {DT_FINI_ARRAYSZ, 8}}, kSound),
        Entries("destructors longer than it", {{DT_FINI_ARRAY, 0}, {DT_FINI_ARRAYSZ, kBehindIt}}, kDamaged),
        Entries("a start", {{DT_INIT, 0}}, kSound),
        Entries("a start behind it", {{DT_INIT, kBehindIt}}, kDamaged),
        Entries("an end", {{DT_FINI, 0}}, kSound),
        Entries("an end behind it", {{DT_FINI, kBehindIt}}, kDamaged),
        Entries("versions", {{DT_VERSYM, 0}, {DT_VERNEED, 0}, {DT_VERDEF, 0}}, kSound),
        Entries("versions of symbols behind it", {{DT_VERSYM, kBehindIt}}, kDamaged),
        Entries("versions that it needs behind it", {{DT_VERNEED, kBehindIt}}, kDamaged),
        Entries("versions that it has behind it", {{DT_VERDEF, kBehindIt}}, kDamaged),
        // Words: the buckets, the first symbol, the words of the filter and its shift, one of the filter's
        // (64 bits), one bucket.
        Entries("names by hash", {{DT_GNU_HASH, kWords}}, kSound, {1, 1, 1, 0, 0, 0, 0}),
        Entries("no buckets", {{DT_GNU_HASH, kWords}}, kDamaged, {0, 1, 1, 0, 0, 0, 0}),
        Entries("a filter of three words", {{DT_GNU_HASH, kWords}}, kDamaged, {1, 1, 3, 0, 0, 0, 0}),
        Entries("more buckets than it has", {{DT_GNU_HASH, kWords}}, kDamaged, {1 << 20, 1, 1, 0, 0, 0, 0}),
        Entries("a longer filter than it has", {{DT_GNU_HASH, kWords}}, kDamaged,
                {1, 1, 1 << 20, 0, 0, 0, 0}),
        Entries("names by hash behind it", {{DT_GNU_HASH, kBehindIt}}, kDamaged),
        // The older table: buckets, chains, then both.
        Entries("older hash", {{DT_HASH, kWords}}, kSound, {1, 1, 0, 0}),
        Entries("older hash without buckets", {{DT_HASH, kWords}}, kDamaged, {0, 1, 0, 0}),
        Entries("older hash longer than it", {{DT_HASH, kWords}}, kDamaged, {1, 1 << 20, 0, 0}),
        Entries("older hash behind it", {{DT_HASH, kBehindIt}}, kDamaged),
        // Names: an empty one at 0, "nnn" at 1, 5 octets.
        Entries("a name", {{DT_SONAME, 1}, {DT_RPATH, 1}}, kSound),
        Entries("a name behind the last", {{DT_SONAME, 5}}, kDamaged),
        Entries("a path behind the last", {{DT_RPATH, 5}}, kDamaged),
        Entries("a later path behind the last", {{DT_RUNPATH, 5}}, kDamaged),
        Entries("a name without an end", {{DT_STRSZ, 4}}, kDamaged),
        Entries("a need behind the last", {{DT_NEEDED, 5}}, kDamaged),
        Entries("names without octets behind it", {{DT_STRTAB, kBehindIt}, {DT_STRSZ, 0}}, kDamaged),
        Entries("tags of others", {{DT_FLAGS_1, 1}, {-1, 1}}, kSound),
    }));

ElfW(Phdr) Segment(unsigned int type, std::uint64_t offset, std::uint64_t address, std::uint64_t fileSize,
                   std::uint64_t size, std::uint64_t alignment) {
    ElfW(Phdr) segment = test::HostileImage::Segment(type, offset, size);
    segment.p_vaddr = address;
    segment.p_filesz = fileSize;
    segment.p_align = alignment;
    return segment;
}

Row WithSegment(const char* what, const ElfW(Phdr) & segment, os::EImage image) {
    return {what, [=](test::HostileImage& changed) { changed.AddSegment(segment); }, image};
}

INSTANTIATE_TEST_SUITE_P(
    Segments, ImageFileOfAChange,
    testing::ValuesIn(std::vector<Row>{
        WithSegment("of zeros", Segment(PT_LOAD, 0, 8192, 0, 16, 4096), kSound),
        WithSegment("more in the file than in memory", Segment(PT_LOAD, 0, 8192, 17, 16, 4096), kDamaged),
        WithSegment("behind the end of the file", Segment(PT_LOAD, 4096, 8192, 1, 1, 4096), kDamaged),
        WithSegment("behind all addresses", Segment(PT_LOAD, 0, kNoAddress, 1, 1, 4096), kDamaged),
        WithSegment("over the one before", Segment(PT_LOAD, 0, 0, 1, 1, 4096), kDamaged),
        WithSegment("aligned to no power of two", Segment(PT_LOAD, 0, 12288, 1, 1, 6144), kDamaged),
        WithSegment("aligned to half a page", Segment(PT_LOAD, 0, 8192, 1, 1, 2048), kDamaged),
        WithSegment("aligned to more than all addresses", Segment(PT_LOAD, 0, 8192, 1, 1, kNoAddress),
                    kDamaged),
        WithSegment("not aligned as it says", Segment(PT_LOAD, 1, 8192, 1, 1, 4096), kDamaged),
        WithSegment("of the table itself", Segment(PT_PHDR, 64, 64, 168, 168, 8), kSound),
        WithSegment("of a table elsewhere", Segment(PT_PHDR, 72, 64, 168, 168, 8), kDamaged),
        WithSegment("of a table more in the file", Segment(PT_PHDR, 64, 64, 169, 168, 8), kDamaged),
        WithSegment("of a table behind it", Segment(PT_PHDR, 64, kBehindIt, 168, 168, 8), kDamaged),
        WithSegment("of threads", Segment(PT_TLS, 64, 64, 8, 16, 16), kSound),
        WithSegment("of threads without alignment", Segment(PT_TLS, 64, 64, 8, 16, 0), kSound),
        WithSegment("of threads more in the file", Segment(PT_TLS, 64, 64, 17, 16, 16), kDamaged),
        WithSegment("of threads too large", Segment(PT_TLS, 64, 64, 8, kNoAddress, 16), kDamaged),
        WithSegment("of threads aligned to three", Segment(PT_TLS, 64, 64, 8, 16, 3), kDamaged),
        WithSegment("of threads aligned to more than all", Segment(PT_TLS, 64, 64, 8, 16, kNoAddress),
                    kDamaged),
        WithSegment("of threads behind it", Segment(PT_TLS, 64, kBehindIt, 8, 16, 16), kDamaged),
        WithSegment("a note", Segment(PT_NOTE, 64, 64, 16, 16, 4), kSound),
        WithSegment("a note more in the file", Segment(PT_NOTE, 64, 64, 17, 16, 4), kDamaged),
        WithSegment("a note behind it", Segment(PT_NOTE, 64, kBehindIt, 16, 16, 4), kDamaged),
        WithSegment("properties behind it", Segment(PT_GNU_PROPERTY, 64, kBehindIt, 16, 16, 8), kDamaged),
        WithSegment("frames behind it", Segment(PT_GNU_EH_FRAME, 64, kBehindIt, 16, 16, 4), kDamaged),
        WithSegment("protected up to its page's end", Segment(PT_GNU_RELRO, 64, 64, 16, 4096 - 64, 1),
                    kSound),
        WithSegment("protected behind its page's end", Segment(PT_GNU_RELRO, 64, 64, 16, 4096 - 63, 1),
                    kDamaged),
        WithSegment("dynamic elsewhere", Segment(PT_DYNAMIC, kBehindIt, kBehindIt, 16, 16, 8), kDamaged),
        WithSegment("dynamic of an odd address", Segment(PT_DYNAMIC, 65, 65, 16, 16, 8), kDamaged),
        WithSegment("dynamic without an entry", Segment(PT_DYNAMIC, 64, 64, 15, 15, 8), kDamaged),
        WithSegment("of others", Segment(PT_GNU_STACK, 0, 0, 0, 0, 16), kSound),
    }));

ElfW(Shdr) Section(unsigned int type, std::uint64_t flags, std::uint64_t address, std::uint64_t offset,
                   std::uint64_t size) {
    ElfW(Shdr) section{};
    section.sh_type = type;
    section.sh_flags = flags;
    section.sh_addr = address;
    section.sh_offset = offset;
    section.sh_size = size;
    return section;
}

// Sections repeat the layout of the segments: of one that can only be read, and of the page at 8192, of which
// the file has nothing. The last part of that page is protected later.
Row WithSection(const char* what, const ElfW(Shdr) & section, os::EImage image) {
    const auto change = [=](test::HostileImage& changed) {
        ElfW(Phdr) data = Segment(PT_LOAD, 0, 8192, 0, 4096, 4096);
        data.p_flags = PF_R | PF_W;
        changed.AddSegment(data);
        changed.AddSegment(Segment(PT_GNU_RELRO, 0, 8192, 64, 4096, 1));
        changed.AddSection(section);
    };
    return {what, change, image};
}

INSTANTIATE_TEST_SUITE_P(
    Sections, ImageFileOfAChange,
    testing::ValuesIn(std::vector<Row>{
        WithSection("read", Section(SHT_PROGBITS, SHF_ALLOC, 64, 64, 8), kSound),
        WithSection("elsewhere in the file", Section(SHT_PROGBITS, SHF_ALLOC, 64, 72, 8), kDamaged),
        WithSection("run", Section(SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 64, 64, 8), kDamaged),
        WithSection("written", Section(SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 64, 64, 8), kDamaged),
        WithSection("between the segments", Section(SHT_PROGBITS, SHF_ALLOC, 4096, 64, 8), kDamaged),
        WithSection("of the page without octets", Section(SHT_PROGBITS, SHF_ALLOC, 8192, 0, 8), kDamaged),
        WithSection("zeros of a thread", Section(SHT_NOBITS, SHF_ALLOC | SHF_TLS, kBehindIt, 0, 8), kSound),
        WithSection("empty", Section(SHT_PROGBITS, SHF_ALLOC, kBehindIt, 0, 0), kSound),
        WithSection("not in memory", Section(SHT_PROGBITS, 0, kBehindIt, 0, 8), kSound),
        WithSection("zeros up to the end", Section(SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 8256, 0, 4032), kSound),
        WithSection("zeros of which some are protected",
                    Section(SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 8256, 0, 4031), kDamaged),
        WithSection("zeros behind the end", Section(SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 8256, 0, 4033),
                    kDamaged),
    }));

TEST(ImageFile, AHeaderThatIsNotOfThisMachinesImagesIsForeignOrDamaged) {
    struct HeaderRow {
        const char* what;
        void (*change)(ElfW(Ehdr) & header);
        os::EImage image;
    };
    constexpr os::EImage kForeign = os::EImage::kForeign;
    const std::vector<HeaderRow> rows = {
        {"no magic", [](auto& header) { header.e_ident[3] = 'f'; }, kDamaged},
        {"of 32 bits", [](auto& header) { header.e_ident[EI_CLASS] = ELFCLASS32; }, kForeign},
        {"big-endian", [](auto& header) { header.e_ident[EI_DATA] = ELFDATA2MSB; }, kForeign},
        {"of another machine", [](auto& header) { header.e_machine = EM_S390; }, kForeign},
        {"segments of another size", [](auto& header) { header.e_phentsize = 55; }, kDamaged},
        {"no segments", [](auto& header) { header.e_phnum = 0; }, kDamaged},
        {"more segments than any has", [](auto& header) { header.e_phnum = 257; }, kDamaged},
        {"only segments that aren't loaded",
         [](auto& header) {
             header.e_phoff += sizeof(ElfW(Phdr));
             header.e_phnum = 1;
         },
         kDamaged},
        {"no dynamic segment", [](auto& header) { header.e_phnum = 1; }, kDamaged},
        {"segments behind it", [](auto& header) { header.e_phoff = kBehindIt; }, kDamaged},
        {"segments at no offset", [](auto& header) { header.e_phoff = ~std::uint64_t{0}; }, kDamaged},
        {"sections of another size", [](auto& header) { header.e_shentsize = 63; }, kDamaged},
        {"sections behind it", [](auto& header) { header.e_shoff = kBehindIt; }, kDamaged},
        {"no sections of any size",
         [](auto& header) {
             header.e_shnum = 0;
             header.e_shentsize = 0;
         },
         kSound},
    };
    test::HostileImage image;
    image.AddSections(1);
    for (const HeaderRow& row : rows) {
        std::string octets = image.Octets(true);
        ElfW(Ehdr) header{};
        std::memcpy(&header, octets.data(), sizeof header);
        row.change(header);
        std::memcpy(octets.data(), &header, sizeof header);
        os::ImageNeeds needs;
        EXPECT_EQ(Read(octets, needs), row.image) << row.what;
    }
}

}  // namespace
