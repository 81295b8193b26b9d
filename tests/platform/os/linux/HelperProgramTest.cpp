#include <Base/platform/os/linux/processes/HelperProcess.h>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>

#include "tests/support/RefusedCalls.h"

namespace {

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

TEST(HelperProgram, IsFoundWhereTheSystemShowsNoLinks) {
    const int result = test::InChild([] {
        if (!test::RefuseCalls({SYS_openat, SYS_open}, ENOENT)) return test::kNotAllowed;  // as without /proc
        static os::HelperProgram found;
        return found.Find("helper") ? 0 : 1;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result, 0);
}

}  // namespace
