#include <Base/platform/os/linux/modules/ImageFile.h>

#include <gtest/gtest.h>
#include <link.h>

#include <string>
#include <vector>

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

}  // namespace
