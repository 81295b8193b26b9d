#include <Base/platform/os/linux/processes/HelperProcess.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/TemporaryFile.h"

namespace {

namespace fs = std::filesystem;
namespace os = ZBase::os;

TEST(HelperProgram, IsFoundWithoutADescriptorToSpare) {
    static os::HelperProgram usual;
    ASSERT_TRUE(usual.Find("helper"));
    EXPECT_EQ(
        test::InChild([] {
            const rlimit none{0, 0};
            setrlimit(RLIMIT_NOFILE, &none);
            static os::HelperProgram found;
            if (!found.Find("helper")) return 1;
            // This program may have been started by a path with links in it.
            return found.path[0] == '/' && std::strcmp(std::strrchr(found.path, '/'), "/helper") == 0 ? 0 : 2;
        }),
        0);
}

TEST(HelperProgram, IsFoundWithoutProc) {
    const int result = test::InChild([] {
        if (!test::HideProc()) return test::kNotAllowed;
        static os::HelperProgram found;
        if (!found.Find("helper")) return 1;
        return std::strncmp(found.path, "/proc/", 6) != 0 && found.path[0] == '/' ? 0 : 2;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process hide /proc";
    EXPECT_EQ(result, 0);
}

// The test runs a copy of this program, which removes its own file.
TEST(HelperProgram, IsFoundBesideAProgramThatWasRemoved) {
    if (const char* const copy = std::getenv("ZBASE_TEST_COPY")) {
        fs::remove(copy);
        static os::HelperProgram found;
        ASSERT_TRUE(found.Find("helper"));
        EXPECT_EQ(found.path, (fs::path(copy).parent_path() / "helper").string());
        return;
    }
    const test::TemporaryFile file;
    fs::copy_file("/proc/self/exe", file.Path(), fs::copy_options::overwrite_existing);
    fs::permissions(file.Path(), fs::perms::owner_all);
    const test::ChildResult child =
        test::RunChild({file.Path(), "--gtest_filter=HelperProgram.IsFoundBesideAProgramThatWasRemoved"},
                       {"ZBASE_TEST_COPY=" + fs::canonical(file.Path()).string()});
    EXPECT_EQ(child.exitCode, 0) << child.output;
}

}  // namespace
