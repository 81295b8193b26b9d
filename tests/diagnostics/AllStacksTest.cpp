#include <Base/diagnostics/AllStacks.h>

#include <TestPlaces.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/ScratchFolder.h"

// All stacks of hanging processes; see HangingProbe.

namespace {

namespace fs = std::filesystem;

struct Thread {
    std::string heading;
    std::vector<std::string> frames;

    // Whether a frame is in a function, by its name.
    bool IsIn(const std::string& function) const {
        return std::any_of(frames.begin(), frames.end(), [&](const std::string& frame) {
            return frame.find(" " + function + "+0x") != std::string::npos;
        });
    }
};

struct Report {
    std::string heading;
    std::vector<Thread> threads;
    std::vector<std::string> modules;

    int CountIn(const std::string& function) const {
        return static_cast<int>(std::count_if(threads.begin(), threads.end(),
                                              [&](const Thread& thread) { return thread.IsIn(function); }));
    }
};

std::string TextOf(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

Report Read(const std::string& text) {
    Report report;
    std::istringstream lines(text);
    std::getline(lines, report.heading);
    std::vector<std::string>* frames = nullptr;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("Thread ")) frames = &report.threads.emplace_back(Thread{line, {}}).frames;
        if (line == "Modules") frames = &report.modules;
        if (line.starts_with("  ") && frames != nullptr) frames->push_back(line.substr(2));
    }
    return report;
}

class AllStacks : public test::ScratchFolder {
protected:
    void SetUp() override {
        if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has a heap of its own, and holds signals back";
    }

    Report Hang(const char* what) {
        const fs::path path = mFolder / "stacks.txt";
        const test::ChildResult child = test::RunChild({test::ChildProgram("HangingProbe"), what, path});
        EXPECT_EQ(child.exitCode, 0) << "signal " << child.signal << child.errors;
        return Read(TextOf(path));
    }

    // The content of a configuration, and a variable with its path.
    std::string Configure(const std::string& setting) {
        return "ZENT_CRASH_CONFIG_FILE=" +
               Write("crash_report.ini", "[Config]\nServerURL=x\nServerProdURL=x\ndump_path=" +
                                             (mFolder / "dumps").string() + "\n" + setting + "\n");
    }
};

void ExpectAllThreads(const Report& report) {
    EXPECT_EQ(report.CountIn("main"), 1);
    EXPECT_EQ(report.CountIn("WaitInAQueue"), 1);
    EXPECT_EQ(report.CountIn("GoOnRunning"), 1);
    EXPECT_EQ(report.CountIn("TakeNoSignals"), 1);
    const auto expect = [&](const char* function, const char* end) {
        for (const Thread& thread : report.threads)
            EXPECT_TRUE(!thread.IsIn(function) || thread.heading.ends_with(end)) << thread.heading;
    };
    expect("WaitInAQueue", " \"in a \"queue\"?\", sleeping");
    expect("TakeNoSignals", "sleeping, could not be stopped");
    expect("GoOnRunning", ", running");
}

TEST_F(AllStacks, NameEachThreadAndItsFunctions) {
    const Report report = Hang("none");
    EXPECT_TRUE(report.heading.starts_with("Stacks of process ")) << report.heading;
    EXPECT_TRUE(report.heading.ends_with(", " + test::ChildProgram("HangingProbe"))) << report.heading;
    EXPECT_EQ(report.threads.size(), 4U);
    ExpectAllThreads(report);
    EXPECT_GE(report.modules.size(), 3U);
}

TEST_F(AllStacks, AreWrittenWhileTheLoadersLockIsHeld) {
    const Report report = Hang("loader");
    ExpectAllThreads(report);
    EXPECT_EQ(report.CountIn("StayInTheLoader()"), 1);
}

TEST_F(AllStacks, AreWrittenWhileTheLocksOfHeapAndLoaderAreHeld) {
    const Report report = Hang("heap");
    ExpectAllThreads(report);
    EXPECT_EQ(report.CountIn("StayInTheLoader()"), 1);
    EXPECT_EQ(report.CountIn("StayInTheHeap"), 1);
}

TEST_F(AllStacks, GiveAnAddressItsPlaceInTheFileOfItsModule) {
    const Report report = Hang("none");
    const std::string program = test::ChildProgram("HangingProbe");
    const std::string symbols = test::RunChild({"/usr/bin/nm", program}).output;
    int found = 0;
    for (const Thread& thread : report.threads) {
        for (const std::string& frame : thread.frames) {
            const std::string name = " WaitInAQueue+0x";
            const std::size_t place = frame.find(name);
            if (place == std::string::npos) continue;
            ASSERT_EQ(frame.substr(19, program.size() + 3), program + "+0x");
            const unsigned long offset = std::stoul(frame.substr(19 + program.size() + 3), nullptr, 16);
            const unsigned long displacement = std::stoul(frame.substr(place + name.size()), nullptr, 16);
            char start[20];
            std::snprintf(start, sizeof start, "%016lx", offset - displacement);
            EXPECT_NE(symbols.find(start + std::string(" T WaitInAQueue\n")), std::string::npos) << frame;
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
}

TEST_F(AllStacks, AreWrittenWithoutNamesWhereNobodyLooksThemUp) {
    // A library alone in its directory.
    const fs::path library = mFolder / "libZBase.so.1";
    fs::copy_file(ZBASE_LIBRARY, library);
    const fs::path path = mFolder / "stacks.txt";
    const test::ChildResult child =
        test::RunChild({test::ChildProgram("HangingProbe"), "heap", path},
                       {"LD_LIBRARY_PATH=" + mFolder.string(), "LD_PRELOAD=" + library.string()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    const Report report = Read(TextOf(path));
    EXPECT_EQ(report.threads.size(), 6U);
    EXPECT_EQ(report.CountIn("WaitInAQueue"), 0);
    for (const Thread& thread : report.threads) {
        ASSERT_FALSE(thread.frames.empty()) << thread.heading;
        for (const std::string& frame : thread.frames) {
            EXPECT_TRUE(frame.starts_with("0x")) << frame;
            EXPECT_NE(frame.find("+0x"), std::string::npos) << frame;
        }
    }
    // They can be added later.
    const fs::path names = fs::path(ZBASE_LIBRARY).parent_path() / "zbase-stack-names";
    EXPECT_EQ(test::RunChild({names, path}).exitCode, 0);
    ExpectAllThreads(Read(TextOf(path)));
}

TEST_F(AllStacks, AreWrittenAtTheSignalThatTheConfigurationNames) {
    const test::BackgroundChild child(
        {"/usr/bin/env", Configure("stacks_on=SIGQUIT"), test::ChildProgram("HangingProbe"), "signal", "-"});
    std::string text;
    for (int i = 0; i != 6000 && text.find(" StayInTheHeap+0x") == std::string::npos; ++i) {
        usleep(10'000);
        if (!fs::exists(mFolder / "dumps")) continue;
        for (const auto& entry : fs::directory_iterator(mFolder / "dumps")) {
            const std::string name = entry.path().filename();
            if (name.starts_with("stacks-") && name.ends_with(".txt")) text = TextOf(entry.path());
        }
    }
    const Report report = Read(text);
    ExpectAllThreads(report);
    EXPECT_EQ(report.CountIn("StayInTheHeap"), 1);
    EXPECT_EQ(std::count_if(report.threads.begin(), report.threads.end(),
                            [](const Thread& thread) {
                                return thread.heading.ends_with("\"zbase-stacks\", running, writes this");
                            }),
              1);
}

TEST_F(AllStacks, LeaveTheSignalOfAForkedChildAsItWas) {
    EXPECT_EQ(
        test::RunChild({test::ChildProgram("HangingProbe"), "child", "-"}, {Configure("stacks_on=SIGQUIT")})
            .output,
        "by its signal\n");
}

TEST_F(AllStacks, AreWrittenAtNoSignalOfAnotherName) {
    for (const char* setting : {"stacks_on=SIGSEGV", "stacks_on=", "stacks_on=QUIT", "stacks_on=SIGQUIT "}) {
        const test::ChildResult child =
            test::RunChild({test::ChildProgram("HangingProbe"), "signal", "-"}, {Configure(setting)});
        EXPECT_EQ(child.signal, SIGQUIT) << setting;
    }
}

TEST_F(AllStacks, AreRefusedWithoutAFileToWrite) {
    EXPECT_FALSE(ZBase::DumpAllStacks(nullptr));
    EXPECT_FALSE(ZBase::DumpAllStacks(""));
    EXPECT_FALSE(ZBase::DumpAllStacks((mFolder / "missing" / "stacks.txt").c_str()));
    EXPECT_FALSE(ZBase::DumpAllStacks(mFolder.c_str()));
    EXPECT_FALSE(ZBase::DumpAllStacks("/dev/full"));
    const fs::path pipe = mFolder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(ZBase::DumpAllStacks(pipe.c_str()));
}

TEST_F(AllStacks, ReplaceAFileAndBelongToItsOwner) {
    const std::string path = Write("stacks.txt", std::string(1 << 20, 'x'));
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(ZBase::DumpAllStacks(path.c_str()));
    EXPECT_TRUE(TextOf(path).starts_with("Stacks of process " + std::to_string(getpid()) + ", "));
    EXPECT_EQ(TextOf(path).find('x' + std::string(64, 'x')), std::string::npos);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(std::distance(fs::directory_iterator(mFolder), {}), 1);
}

TEST_F(AllStacks, MayBeWantedByManyAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back(
            [&, i] { EXPECT_TRUE(ZBase::DumpAllStacks((mFolder / std::to_string(i)).c_str())); });
    }
    for (std::thread& thread : threads) thread.join();
    for (int i = 0; i != 4; ++i) {
        const std::string text = TextOf(mFolder / std::to_string(i));
        EXPECT_NE(text.find("\nModules\n"), std::string::npos);
        EXPECT_NE(text.find("writes this"), std::string::npos);
    }
}

// The file takes the last descriptor, and the list of the threads would need another.
TEST_F(AllStacks, WithoutADescriptorForTheListHaveTheCallingThreadAndSayWhy) {
    const std::string path = (mFolder / "few.txt").string();
    const int spare = dup(STDIN_FILENO);  // the lowest number
    ASSERT_GE(spare, 0);
    const int result = test::InChild([&] {
        close(spare);
        const rlimit limit{static_cast<rlim_t>(spare) + 1, static_cast<rlim_t>(spare) + 1};
        setrlimit(RLIMIT_NOFILE, &limit);
        return ZBase::DumpAllStacks(path.c_str()) ? 0 : 1;
    });
    close(spare);
    EXPECT_EQ(result, 0);
    const std::string text = TextOf(path);
    EXPECT_NE(text.find(", running, writes this\n  0x"), std::string::npos) << text;
    EXPECT_NE(text.find("\nOther threads are not known: Too many open files\n"), std::string::npos) << text;
}

}  // namespace
