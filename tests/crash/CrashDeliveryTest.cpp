#include <Base/ZBase.h>
#include <Base/crash/detail/CrashKeysBlock.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <string_view>
#include <thread>

#include "tests/crash/CrashBench.h"
#include "tests/crash/FixedServer.h"

// Left dumps, sent by the process that the next start of the program has started.

namespace {

namespace fs = std::filesystem;

constexpr char kNobody[] = "http://127.0.0.1:1/";

class CrashDelivery : public test::CrashBench {
protected:
    void LeaveDump(const std::string& kind = "null") {
        mServer = kNobody;
        Configure("send_left=false\n");
        Crash({kind, "run", "7"});
        ASSERT_FALSE(LeftDumps().empty());
    }

    // Asynchronous; slow on a loaded machine.
    static bool Await(const std::function<bool()>& condition) {
        for (int i = 0; i != 6000; ++i) {
            if (condition()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    fs::path PauseFile() const { return mDumps / "crash-sender.pause"; }

    // The number of failures, the time of the next try, and what follows.
    struct Noted {
        int failures = -1;
        long long next = 0;
        std::string rest;
    };
    Noted ReadPause() const {
        Noted noted;
        std::ifstream file(PauseFile());
        if (file >> noted.failures >> noted.next) std::getline(file.ignore(1), noted.rest);
        return noted;
    }
    void WritePause(const Noted& noted) const {
        std::ofstream(PauseFile()) << noted.failures << ' ' << noted.next << '\n' << noted.rest << '\n';
    }
    // Whether the next failure after so many is counted. A sender of an earlier program may still note its
    // own.
    bool FailureFollows(Noted noted, int failures) {
        noted.failures = failures;
        return Await([&] {
            if (ReadPause().failures < failures) WritePause(noted);
            Crash({"none"});
            return ReadPause().failures == failures + 1;
        });
    }
};

TEST_F(CrashDelivery, LeftDumpIsSentAtTheNextStart) {
    LeaveDump();
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    EXPECT_TRUE(Await([this] { return LeftDumps().empty() && fs::is_empty(mDumps); }));
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1)["run"], "7");
    EXPECT_TRUE(test::ReadDumpFile(ReceivedDumps()[0]).Has("WriteToNull"));
}

// As that of another program in the same directory.
TEST_F(CrashDelivery, LeftDumpWithoutKeysIsSentToo) {
    LeaveDump();
    const fs::path dump = LeftDumps()[0];
    std::stringstream read;
    read << std::ifstream(dump, std::ios::binary).rdbuf();
    std::string content = read.str();
    const std::string_view magic = ZBase::detail::kCrashKeysMagic;
    ASSERT_NE(content.find(magic), std::string::npos);
    for (std::size_t at = 0; (at = content.find(magic, at)) != std::string::npos;)
        content.replace(at, magic.size(), magic.size(), ' ');
    std::ofstream(dump, std::ios::binary) << content;
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    EXPECT_TRUE(Await([this] { return LeftDumps().empty() && fs::is_empty(mDumps); }));
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_FALSE(ReceivedKeys(1).contains("run"));
    EXPECT_TRUE(test::ReadDumpFile(ReceivedDumps()[0]).Has("WriteToNull"));
}

TEST_F(CrashDelivery, AllThatWereLeftAreSentEachOnce) {
    LeaveDump("dump-first");
    LeaveDump("dump-first");
    EXPECT_EQ(LeftDumps().size(), 6u);
    StartServer();
    Configure();
    std::vector<std::unique_ptr<test::BackgroundChild>> starts;
    for (int i = 0; i != 4; ++i) starts.push_back(CrashInBackground({"none"}));
    starts.clear();
    EXPECT_TRUE(Await([this] {
        Crash({"none"});  // those before may have been ended too early
        return LeftDumps().empty();
    }));
    EXPECT_EQ(ReceivedDumps().size(), 6u);
}

TEST_F(CrashDelivery, DumpThatArrivedAndStaysIsNotSentAgain) {
    StartServer();
    Configure("keep_dump_file=true\n");
    Crash({"null"});
    ASSERT_EQ(LeftDumps().size(), 1u);
    const ZBase::CrashStore store(mDumps.string(), {});
    EXPECT_TRUE(store.IsSent(LeftDumps()[0].filename().string()));
    EXPECT_FALSE(store.HasUnsent());
    LeaveDump();
    EXPECT_TRUE(store.HasUnsent());
}

TEST_F(CrashDelivery, FailuresMakeThePausesGrow) {
    LeaveDump();
    Configure();
    const long long before = std::time(nullptr);
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    ASSERT_TRUE(Await([this] { return ReadPause().failures == 1; }));
    Noted noted = ReadPause();
    EXPECT_GE(noted.next, before + 60);
    EXPECT_LE(noted.next, std::time(nullptr) + 60);

    noted.next = std::time(nullptr) - 1;
    ASSERT_TRUE(FailureFollows(noted, 3));
    EXPECT_GE(ReadPause().next, before + 480);
    EXPECT_EQ(LeftDumps().size(), 1u);

    ASSERT_TRUE(FailureFollows(noted, 30));
    EXPECT_LE(ReadPause().next, std::time(nullptr) + 3600);
}

TEST_F(CrashDelivery, PauseOutlivesTheProcessAndEndsWithAnotherServer) {
    LeaveDump();
    Configure();
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    ASSERT_TRUE(Await([this] { return ReadPause().failures == 1; }));
    Noted noted = ReadPause();
    noted.next += 1000;
    WritePause(noted);
    for (int i = 0; i != 3; ++i) Crash({"none"});
    StartServer();
    Configure();
    EXPECT_TRUE(Await([this] {
        EXPECT_TRUE(ReadPause().failures <= 1);
        Crash({"none"});
        return LeftDumps().empty();
    }));
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashDelivery, ProcessThatSendsEndsWithTheProgramAndLeavesTheDump) {
    const test::FixedServer server(test::Manner::eAnswer,
                                   "HTTP/1.1 500 Broken\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    LeaveDump();
    mServer = server.Address();
    Configure();
    EXPECT_EQ(Crash({"none"}).exitCode, 0);
    ASSERT_TRUE(Await([this] { return ReadPause().failures == 1; }));
    EXPECT_EQ(server.Requests(), 1);
    EXPECT_TRUE(Await([this] { return ZBase::CrashStore(mDumps.string(), {}).BecomeSender(); }));
    ASSERT_EQ(LeftDumps().size(), 1u);
    EXPECT_FALSE(LeftDumps()[0].string().ends_with(".sending.dmp"));
}

}  // namespace
