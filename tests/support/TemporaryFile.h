#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "tests/support/System.h"

namespace test {

/// A name for a file of a test; the file is removed with the object.
class TemporaryFile {
public:
    TemporaryFile() {
        std::random_device random;
        do mPath = (std::filesystem::temp_directory_path() / ("zbase" + std::to_string(random()))).string();
        while (std::filesystem::exists(mPath));
        const SpareDescriptors spare;
        std::ofstream(mPath).close();
    }
    ~TemporaryFile() { std::remove(mPath.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const char* Path() const { return mPath.c_str(); }

    std::string Text() const {
        const SpareDescriptors spare;
        std::ifstream file(mPath);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string mPath;
};

}  // namespace test
