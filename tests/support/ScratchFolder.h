#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace test {

/// A folder of its own for each test.
class ScratchFolder : public testing::Test {
protected:
    ScratchFolder() {
        std::random_device random;
        do mFolder = std::filesystem::temp_directory_path() / ("zbase-test-" + std::to_string(random()));
        while (!std::filesystem::create_directory(mFolder));
    }
    ~ScratchFolder() override { std::filesystem::remove_all(mFolder); }

    /// The path of a new file.
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(mFolder / name, std::ios::binary) << content;
        return (mFolder / name).string();
    }

    std::filesystem::path mFolder;
};

}  // namespace test
