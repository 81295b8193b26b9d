#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/Allocations.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/zlitexml/linux/FileWriterBench.h"

// Where the disk, memory or descriptors do not suffice.

namespace {

namespace fs = std::filesystem;
using test::FileSizeLimit;
using test::InChild;
using test::ModeOf;
using test::WhatIsSaid;

class FileWriterShortage : public test::FileWriterBench {};

TEST_F(FileWriterShortage, DocumentThatTheDiskCannotHoldLeavesTheOldOneAndNothingElse) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    const std::string text(200000, 'x');
    {
        const FileSizeLimit limit(1000);
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        EXPECT_THROW(writer->Characters(text.c_str()), ZLiteXML::XMLException);
        EXPECT_THROW(writer->StartElement("a"), ZLiteXML::XMLException);
    }
    {
        const FileSizeLimit limit(1000);
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        writer->Characters(text.substr(0, 2000).c_str());
        EXPECT_TRUE(WhatIsSaid([&] { writer->EndElement("a"); }).ends_with(": File too large"));
    }
    EXPECT_EQ(ReadAll(file), "old");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriterShortage, OutOfMemoryLeavesNothingBehind) {
    const fs::path file = mFolder / "new.xml";
    const std::string text(100000, 'x');
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    const std::size_t failures = test::ForEachFailingAllocation([&] {
        try {
            const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
            writer->StartElement("a");
            writer->Characters(text.c_str());
            writer->EndElement("a");
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(Files(), 0u);
        }
    });
    EXPECT_GT(failures, 3u);
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriterShortage, WithoutDescriptorsTheReasonIsTold) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer looks at memory through a pipe";
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string said = WhatIsSaid([&] { WriteTo(mFolder / "new.xml"); });
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(said.ends_with(": Too many open files")) << said;
    EXPECT_EQ(Files(), 0u);
}

// However many are left, a failure leaves the old file, and success its permissions.
TEST_F(FileWriterShortage, WithFewDescriptorsAFailureLeavesTheOldFile) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer looks at memory through a pipe";
    const fs::path file = mFolder / "old.xml";
    int failures = 0;
    int successes = 0;
    for (int left = 0; left != 6; ++left) {
        std::ofstream(file) << "old";
        ASSERT_EQ(chmod(file.c_str(), 0664), 0);
        const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(next);
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit few{static_cast<rlim_t>(next + left), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        const std::string said = WhatIsSaid([&] { WriteTo(file); });
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(ReadAll(file), said.empty() ? "<a/>" : "old") << left << " left: " << said;
        EXPECT_EQ(ModeOf(file), 0664u) << left << " left";
        (said.empty() ? successes : failures) += 1;
    }
    EXPECT_GT(failures, 0);
    EXPECT_GT(successes, 0);
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriterShortage, LargeDocumentIsNotHeldInMemory) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer holds back what is freed";
    const fs::path file = mFolder / "large.xml";
    const std::string text(1000, 'x');
    EXPECT_EQ(InChild([&] {
                  const std::size_t before = test::PeakMemoryFromNowOn();
                  const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.indentation = 2});
                  writer->StartElement("a");
                  for (int number = 0; number < 70000; ++number) {
                      writer->StartElement("b");
                      writer->Characters(text.c_str());
                      writer->EndElement("b");
                  }
                  writer->EndElement("a");
                  return test::PeakMemory() - before < (4u << 20) ? 0 : 2;
              }),
              0);
    EXPECT_GT(fs::file_size(file), 64u << 20);
}

}  // namespace
