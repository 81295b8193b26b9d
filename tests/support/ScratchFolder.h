#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

#include "tests/support/System.h"

namespace test {

/// A folder of its own for each test.
class ScratchFolder : public testing::Test {
protected:
    ScratchFolder() {
        std::random_device random;
        const SpareDescriptors spare;
        std::error_code failure;
        do
            mFolder =
                std::filesystem::temp_directory_path(failure) / ("zbase-test-" + std::to_string(random()));
        while (!failure && !std::filesystem::create_directory(mFolder, failure) && !failure);
        if (failure) {
            testing::internal::AssertHelper(testing::TestPartResult::kSkip, __FILE__, __LINE__, "") =
                testing::Message() << "no folder for the files of a test: " << failure.message();
        }
    }
    ~ScratchFolder() override {
        const SpareDescriptors spare;
        std::error_code ignored;
        std::filesystem::remove_all(mFolder, ignored);
    }

    /// The path of a new file.
    std::string Write(const std::string& name, const std::string& content) const {
        const SpareDescriptors spare;
        std::ofstream(mFolder / name, std::ios::binary) << content;
        return (mFolder / name).string();
    }

    std::filesystem::path mFolder;
};

}  // namespace test
