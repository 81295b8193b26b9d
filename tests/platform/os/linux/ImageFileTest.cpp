#include <Base/platform/os/linux/modules/ImageFile.h>

#include <gtest/gtest.h>
#include <link.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>
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

}  // namespace
