#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace test {

/// A name for a file of a test; the file is gone with it.
class TemporaryFile {
public:
    TemporaryFile() : mPath(testing::TempDir() + "zbaseXXXXXX") {
        const int file = mkstemp(mPath.data());
        if (file >= 0) close(file);
    }
    ~TemporaryFile() { std::remove(mPath.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const char* Path() const { return mPath.c_str(); }

    std::string Text() const {
        std::ifstream file(mPath);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string mPath;
};

}  // namespace test
