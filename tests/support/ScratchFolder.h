#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace test {

/// A folder of its own for each test.
class ScratchFolder : public testing::Test {
protected:
    ScratchFolder() {
        char name[] = "/tmp/zbase-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    ~ScratchFolder() override { std::filesystem::remove_all(mFolder); }

    /// The path of a new file.
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(mFolder / name, std::ios::binary) << content;
        return mFolder / name;
    }

    std::filesystem::path mFolder;
};

}  // namespace test
