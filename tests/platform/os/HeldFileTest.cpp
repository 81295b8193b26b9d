#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/files/HeldFile.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/ScratchFolder.h"

namespace {

namespace os = ZBase::os;

class HeldFileTest : public test::ScratchFolder {};

TEST_F(HeldFileTest, IsRefusedToASecondOneWithTheReason) {
    const std::string path = Write("held", "content");
    os::HeldFile first;
    os::HeldFile second;
    ASSERT_TRUE(first.Hold(path));
    errno = 0;
    EXPECT_FALSE(second.Hold(path));
    EXPECT_EQ(errno, EWOULDBLOCK);
    first.LetGo();
    EXPECT_TRUE(second.Hold(path));
}

TEST_F(HeldFileTest, ThatIsNotThereIsRefusedWithThatReason) {
    os::HeldFile file;
    errno = 0;
    EXPECT_FALSE(file.Hold((mFolder / "nothing").string()));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(HeldFileTest, BelongsToTheUserWhoMadeIt) {
    const std::string path = Write("own", "content");
    os::HeldFile file;
    ASSERT_TRUE(file.Hold(path));
    EXPECT_TRUE(file.IsOwn());
    EXPECT_TRUE(os::IsOwnFile(path));
    EXPECT_TRUE(os::IsOwnFile(mFolder.string()));
    EXPECT_FALSE(os::IsOwnFile((mFolder / "nothing").string()));
}

}  // namespace
