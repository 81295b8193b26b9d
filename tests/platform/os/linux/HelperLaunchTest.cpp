#include <Base/platform/os/linux/processes/HelperProcess.h>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TemporaryFile.h"

namespace {

using ZBase::os::HelperLaunch;
using ZBase::os::HelperProgram;

class HelperLaunchTest : public testing::Test {
protected:
    // A program that replies "y" to what it is sent, and then lives on until the file is removed.
    HelperLaunchTest() {
        const std::string path = mProgram.Path();
        std::ofstream(path) << "#!/bin/sh\nread what\nprintf y >&0\nwhile [ -e " << mLife.Path()
                            << " ]; do /bin/sleep 0.1; done\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        path.copy(mHelper->path, sizeof mHelper->path - 1);
        mHelper->arguments[0] = mHelper->path;
    }
    ~HelperLaunchTest() override { munmap(mpLaunch, sizeof(HelperLaunch)); }

    char Run(HelperLaunch& launch) const {
        constexpr char kText[] = "what\n";
        const ZBase::os::ReportPiece piece{kText, sizeof kText - 1};
        return launch.Run(*mHelper, &piece, 1, 60);
    }
    void End() const { std::filesystem::remove(mLife.Path()); }

    const test::TemporaryFile mProgram;
    const test::TemporaryFile mLife;
    const std::unique_ptr<HelperProgram> mHelper = std::make_unique<HelperProgram>();
    HelperLaunch* const mpLaunch = static_cast<HelperLaunch*>(
        mmap(nullptr, sizeof(HelperLaunch), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

bool HasChildren() {
    return waitpid(-1, nullptr, __WALL | WNOHANG) >= 0;
}

TEST_F(HelperLaunchTest, IsFreeAgainWhenTheHelperHasEnded) {
    End();
    for (int i = 0; i != 3; ++i) {
        ASSERT_TRUE(mpLaunch->Take());
        EXPECT_FALSE(mpLaunch->Take());
        EXPECT_EQ(Run(*mpLaunch), 'y');
        EXPECT_FALSE(HasChildren());
    }
}

TEST_F(HelperLaunchTest, OfAHelperThatEndsLateIsFreeAgainAfterItsEnd) {
    ASSERT_TRUE(mpLaunch->Take());
    EXPECT_EQ(Run(*mpLaunch), 'y');
    EXPECT_FALSE(mpLaunch->Take());
    End();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    bool isTaken = false;
    while (!isTaken && std::chrono::steady_clock::now() < limit) {
        isTaken = mpLaunch->Take();
        if (!isTaken) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(isTaken);
    EXPECT_FALSE(HasChildren());
    EXPECT_EQ(Run(*mpLaunch), 'y');
}

struct Guest {
    HelperLaunch* launch;
    bool hasTaken;
};

// It can't collect what its parent has started.
TEST_F(HelperLaunchTest, OfAHelperThatEndsLateIsNoneForAChildInTheSameMemory) {
    constexpr std::size_t kSize = 65536;
    ASSERT_TRUE(mpLaunch->Take());
    EXPECT_EQ(Run(*mpLaunch), 'y');
    Guest guest{mpLaunch, true};
    const auto take = [](void* argument) {
        auto* const self = static_cast<Guest*>(argument);
        self->hasTaken = self->launch->Take();
        _exit(0);
        return 0;
    };
    const std::unique_ptr<char[]> stack(new char[kSize]);
    const pid_t child = clone(take, stack.get() + kSize, CLONE_VM | CLONE_VFORK | SIGCHLD, &guest);
    ASSERT_GT(child, 0);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(guest.hasTaken);
    End();
}

// Only one of many may run on it.
TEST_F(HelperLaunchTest, IsTakenByOneAtATime) {
    ASSERT_TRUE(mpLaunch->Take());
    EXPECT_EQ(Run(*mpLaunch), 'y');
    End();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i)
        threads.emplace_back([&] {
            while (taken == 0 && std::chrono::steady_clock::now() < limit) taken += mpLaunch->Take();
            for (int n = 0; n != 1000; ++n) taken += mpLaunch->Take();
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(taken, 1);
}

}  // namespace
