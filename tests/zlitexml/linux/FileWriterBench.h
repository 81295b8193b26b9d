#pragma once

#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace test {

namespace fs = std::filesystem;

inline std::string WhatIsSaid(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const ZLiteXML::XMLException& failure) {
        return ZBase::FormatMessage(failure, 0).c_str();
    }
    return {};
}

/// A folder for files that are written.
class FileWriterBench : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zlitexml-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    void TearDown() override { fs::remove_all(mFolder); }

    static std::string ReadAll(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(mFolder), {}));
    }
    static void WriteTo(const fs::path& file) {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
    }

    // Whether a program that this process starts would get the file.
    static bool PassedToChildren(const fs::path& file) {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (fs::read_symlink(entry, gone) != file) continue;
            if ((fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC) == 0) return true;
        }
        return false;
    }

    fs::path mFolder;
};

/// While it exists, no file of this process grows beyond `size` bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : mHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &mBefore);
        const rlimit limit{size, mBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &mBefore);
        std::signal(SIGXFSZ, mHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mBefore{};
    void (*mHandler)(int);
};

inline mode_t ModeOf(const fs::path& file) {
    struct stat facts {};
    EXPECT_EQ(stat(file.c_str(), &facts), 0);
    return facts.st_mode & 07777;
}

}  // namespace test
