#include <Base/ZBase.h>
#include <TestPlaces.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>
#include <sstream>

#include "tests/crash/CrashBench.h"

// The store of dumps: what is kept, and the size of a dump.

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;
using ZBase::CrashConfigTable;
using ZBase::CrashStore;
using Names = std::set<std::string>;

constexpr std::uintmax_t kMiB = 1 << 20;

std::string Guid(int number) {
    char text[37];
    std::snprintf(text, sizeof text, "0a1b2c3d-0000-4000-8000-%012d", number);
    return text;
}

class CrashStoreTest : public test::CrashBench {
protected:
    CrashStoreTest() { fs::create_directory(mDumps); }

    void Put(const std::string& name, int daysAgo, std::uintmax_t octets = 100) const {
        std::ofstream(mDumps / name) << "";
        fs::resize_file(mDumps / name, octets);
        fs::last_write_time(mDumps / name,
                            fs::file_time_type::clock::now() - std::chrono::hours(24) * daysAgo);
    }

    void PutFive() const {
        for (int i = 1; i <= 5; ++i) Put(Guid(i) + ".dmp", i);
    }

    unsigned int Trim(const CrashConfigTable& settings, const std::string& without = "") const {
        return CrashStore(mDumps.string(), settings).Trim(without);
    }

    Names Left() const {
        Names names;
        for (const auto& entry : fs::directory_iterator(mDumps)) names.insert(entry.path().filename());
        return names;
    }
};

TEST_F(CrashStoreTest, UsualBoundsKeepWhatIsOrdinary) {
    PutFive();
    EXPECT_EQ(Trim({}), 0u);
    EXPECT_EQ(Left().size(), 5u);
    EXPECT_EQ(ZBase::CrashNumberOf({}, "max_dumps"_w), 50u);
    EXPECT_EQ(ZBase::CrashNumberOf({}, "max_dump_megabytes"_w), 512u);
    EXPECT_EQ(ZBase::CrashNumberOf({}, "max_age_days"_w), 30u);
    EXPECT_EQ(ZBase::CrashNumberOf({}, "dump_megabytes"_w), 64u);
}

TEST_F(CrashStoreTest, OldestGoWhenThereAreTooMany) {
    PutFive();
    EXPECT_EQ(Trim({{"max_dumps"_w, "2"_w}}), 3u);
    EXPECT_EQ(Left(), (Names{Guid(1) + ".dmp", Guid(2) + ".dmp"}));
}

TEST_F(CrashStoreTest, OldestGoWhenTheyAreTooLargeTogether) {
    for (int i = 1; i <= 4; ++i) Put(Guid(i) + ".dmp", i, kMiB);
    EXPECT_EQ(Trim({{"max_dump_megabytes"_w, "4"_w}}), 0u);
    EXPECT_EQ(Trim({{"max_dump_megabytes"_w, "3"_w}}), 1u);
    Put(Guid(5) + ".dmp", 0, kMiB / 2);
    EXPECT_EQ(Trim({{"max_dump_megabytes"_w, "3"_w}}), 1u);
    EXPECT_EQ(Left(), (Names{Guid(1) + ".dmp", Guid(2) + ".dmp", Guid(5) + ".dmp"}));
}

TEST_F(CrashStoreTest, WhatIsTooOldGoes) {
    Put(Guid(1) + ".dmp", 29);
    Put(Guid(2) + ".dmp", 31);
    EXPECT_EQ(Trim({}), 1u);
    EXPECT_EQ(Left(), (Names{Guid(1) + ".dmp"}));
}

TEST_F(CrashStoreTest, ZeroIsNoBound) {
    for (int i = 1; i <= 60; ++i) Put(Guid(i) + ".dmp", 1000, 10 * kMiB);  // sparse files
    EXPECT_EQ(Trim({{"max_dumps"_w, "0"_w}, {"max_dump_megabytes"_w, "0"_w}, {"max_age_days"_w, "0"_w}}), 0u);
    EXPECT_EQ(Left().size(), 60u);
}

TEST_F(CrashStoreTest, WhatIsNoNumberIsTheUsualOne) {
    for (const auto* value : {""_w, "-1"_w, "+5"_w, " 5"_w, "5 "_w, "5MB"_w, "99999999999999999999999"_w}) {
        EXPECT_EQ(ZBase::CrashNumberOf({{"max_dumps"_w, value}}, "max_dumps"_w), 50u);
    }
    EXPECT_EQ(ZBase::CrashNumberOf({{"max_dumps"_w, "007"_w}}, "max_dumps"_w), 7u);
    EXPECT_EQ(ZBase::CrashNumberOf({{"dump_megabytes"_w, "0"_w}}, "dump_megabytes"_w), 64u);
    EXPECT_EQ(ZBase::CrashNumberOf({{"dump_megabytes"_w, "2000"_w}}, "dump_megabytes"_w), 2000u);
    EXPECT_EQ(ZBase::CrashNumberOf({{"dump_megabytes"_w, "2001"_w}}, "dump_megabytes"_w), 64u);
    EXPECT_EQ(ZBase::CrashNumberOf({}, "enable"_w), 0u);
}

TEST_F(CrashStoreTest, WhatIsNotOneOfItsDumpsStays) {
    Put("notes.txt", 99);
    Put("other.dmp", 99);
    Put(Guid(1) + ".dmp.bak", 99);
    Put(Guid(2), 99);
    Put("0a1b2c3d-0000-4000-80000000-00000001.dmp", 99);  // as other programs name theirs
    fs::create_directory(mDumps / (Guid(3) + ".dmp"));
    fs::create_symlink(mDumps / "notes.txt", mDumps / (Guid(4) + ".dmp"));
    ASSERT_EQ(mkfifo((mDumps / (Guid(5) + ".dmp")).c_str(), 0600), 0);
    Put(Guid(6) + ".dmp", 99);
    Put(Guid(7) + ".sending.dmp", 99);  // its sender was killed
    const Names before = Left();
    EXPECT_EQ(Trim({{"max_dumps"_w, "1"_w}}), 2u);
    Names after = before;
    after.erase(Guid(6) + ".dmp");
    after.erase(Guid(7) + ".sending.dmp");
    EXPECT_EQ(Left(), after);
}

TEST_F(CrashStoreTest, WhatIsWrittenOrSentStaysAndTheNextOneGoes) {
    PutFive();
    const int held = open((mDumps / (Guid(5) + ".dmp")).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(Trim({{"max_dumps"_w, "3"_w}}), 2u);
    EXPECT_EQ(Left(), (Names{Guid(1) + ".dmp", Guid(2) + ".dmp", Guid(5) + ".dmp"}));
    close(held);
}

TEST_F(CrashStoreTest, DumpsOfOthersDoNotCountAndCostNoneOfOnesOwn) {
    if (geteuid() != 0) GTEST_SKIP() << "files can be given away by the superuser only";
    PutFive();
    for (const int i : {1, 2, 3}) {
        const std::string path = (mDumps / (Guid(i) + ".dmp")).string();
        if (chown(path.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "there is no other user here";
    }
    EXPECT_EQ(Trim({{"max_dumps"_w, "2"_w}}), 0u);
    EXPECT_EQ(Trim({{"max_dumps"_w, "1"_w}}), 1u);
    EXPECT_FALSE(Left().contains(Guid(5) + ".dmp"));
    EXPECT_EQ(Left().size(), 4u);
}

TEST_F(CrashStoreTest, WhatGoesAnywayCostsNoOtherDump) {
    PutFive();
    EXPECT_EQ(Trim({{"max_dumps"_w, "4"_w}}, (mDumps / (Guid(1) + ".dmp")).string()), 0u);
    EXPECT_EQ(Left().size(), 5u);
}

TEST_F(CrashStoreTest, DumpIsKnownAsSentByItsEnd) {
    Put(Guid(1) + ".dmp", 1);
    Put(Guid(2) + ".dmp", 1, 3);
    const CrashStore store(mDumps.string(), {});
    for (int i = 1; i <= 3; ++i) EXPECT_FALSE(store.IsSent(Guid(i) + ".dmp"));
    EXPECT_TRUE(store.HasUnsent());
    for (const auto& name : store.Dumps()) {
        ZBase::ClaimedDump claim;
        ASSERT_TRUE(claim.Claim((mDumps / name).string()));
        EXPECT_TRUE(claim.MarkSent());
    }
    EXPECT_TRUE(store.IsSent(Guid(1) + ".dmp"));
    EXPECT_TRUE(store.IsSent(Guid(2) + ".dmp"));
    EXPECT_FALSE(store.HasUnsent());
}

TEST_F(CrashStoreTest, DirectoryThatIsNotThereIsLeftSo) {
    EXPECT_EQ(CrashStore((mFolder / "nowhere").string(), {}).Trim(), 0u);
    EXPECT_TRUE(CrashStore((mFolder / "nowhere").string(), {}).Dumps().empty());
    EXPECT_FALSE(fs::exists(mFolder / "nowhere"));
}

TEST_F(CrashStoreTest, InstallationMakesRoom) {
    PutFive();
    mServer = "http://127.0.0.1:1/";
    Configure("max_dumps=2\n");
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    EXPECT_EQ(Left(), (Names{Guid(1) + ".dmp", Guid(2) + ".dmp"}));
}

TEST_F(CrashStoreTest, EachDumpMakesRoom) {
    mServer = "http://127.0.0.1:1/";
    Configure("max_dumps=2\n");
    EXPECT_EQ(Crash({"dump-first"}).signal, SIGSEGV);  // three dumps
    EXPECT_EQ(LeftDumps().size(), 2u);
    const std::vector<fs::path> before = LeftDumps();
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    const std::vector<fs::path> after = LeftDumps();
    EXPECT_EQ(after.size(), 2u);
    EXPECT_NE(after, before);
}

TEST_F(CrashStoreTest, ReportThatArrivesCostsNoOtherDump) {
    StartServer();
    Configure("max_dumps=5\nsend_left=false\n");
    PutFive();
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(Left().size(), 5u);
}

// Threads of a dump, each with its functions, by Breakpad's reader.
std::vector<std::string> ThreadsOf(const fs::path& dump) {
    std::vector<std::string> threads;
    std::istringstream text(
        test::RunChild({ZBASE_BREAKPAD_TOOLS "/minidump_stackwalk", "-m", dump, "/dev/null"}).output);
    for (std::string line; std::getline(text, line);) {
        if (line.empty() || line[0] < '0' || line[0] > '9') continue;
        const std::size_t number = static_cast<std::size_t>(std::stoi(line));
        threads.resize(std::max(threads.size(), number + 1));
        threads[number] += line + "\n";
    }
    return threads;
}

TEST_F(CrashStoreTest, DumpIsNoLargerThanItMayBe) {
    mServer = "http://127.0.0.1:1/";
    Configure("dump_megabytes=3\n");
    EXPECT_EQ(Crash({"deep-stacks"}).signal, SIGSEGV);
    ASSERT_EQ(LeftDumps().size(), 1u);
    const fs::path dump = LeftDumps()[0];
    EXPECT_LE(fs::file_size(dump), 3 * kMiB);
    EXPECT_GE(fs::file_size(dump), 2 * kMiB);
    const test::ReadDump read = test::ReadDumpFile(dump);
    EXPECT_TRUE(read.Has("WriteToNull"));
    EXPECT_EQ(std::count_if(read.stack.begin(), read.stack.end(),
                            [](const std::string& frame) { return frame.find("Descend") == 0; }),
              401);  // whole
    const std::vector<std::string> threads = ThreadsOf(dump);
    EXPECT_EQ(threads.size(), 22u);
    for (const std::string& thread : threads) EXPECT_FALSE(thread.empty());
}

TEST_F(CrashStoreTest, OneDumpHasNoMoreRoomThanAllTogether) {
    mServer = "http://127.0.0.1:1/";
    Configure("max_dump_megabytes=2\n");
    EXPECT_EQ(Crash({"deep-stacks"}).signal, SIGSEGV);
    ASSERT_EQ(LeftDumps().size(), 1u);
    EXPECT_LE(fs::file_size(LeftDumps()[0]), 2 * kMiB);
    EXPECT_TRUE(test::ReadDumpFile(LeftDumps()[0]).Has("WriteToNull"));
}

TEST_F(CrashStoreTest, DumpWithRoomHasAllStacks) {
    mServer = "http://127.0.0.1:1/";
    Configure();
    EXPECT_EQ(Crash({"deep-stacks"}).signal, SIGSEGV);
    ASSERT_EQ(LeftDumps().size(), 1u);
    EXPECT_GE(fs::file_size(LeftDumps()[0]), 21 * 800'000u);
}

}  // namespace
