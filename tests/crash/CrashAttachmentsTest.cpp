#include <Base/ZBase.h>

#include <sys/stat.h>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/crash/CrashBench.h"

// Files that the configuration names and that go with a report.

namespace {

namespace fs = std::filesystem;

constexpr char kNobody[] = "http://127.0.0.1:1/";
constexpr std::size_t kMebibyte = std::size_t{1} << 20;

std::string ContentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void Write(const fs::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

std::string Lines(int count) {
    std::string text;
    for (int i = 0; i != count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

class CrashAttachments : public test::CrashBench {
protected:
    std::string Setting(const std::string& name, const std::string& file) const {
        return "attachment_" + name + "=" + (mFolder / file).string() + "\n";
    }
    std::string Received(const std::string& name, int number = 1) const {
        return ContentOf(mReceived / (std::to_string(number) + "-attachment_" + name));
    }
    std::vector<fs::path> KeptAttachments() const {
        std::vector<fs::path> places;
        for (const auto& entry : fs::directory_iterator(mDumps)) {
            if (entry.path().extension() == ".attachments") places.push_back(entry.path());
        }
        return places;
    }
    void LeaveDump(const std::string& settings) {
        mServer = kNobody;
        Configure("send_left=false\n" + settings);
        Crash({"null"});
    }
    // By the sender in the background; slow on a loaded machine.
    bool AwaitDelivery() const {
        for (int i = 0; i != 6000; ++i) {
            Crash({"none"});
            if (LeftDumps().empty()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
};

TEST_F(CrashAttachments, OfALongFileTheEndGoesAlong) {
    const std::string log = Lines(200'000);
    ASSERT_GT(log.size(), 2 * kMebibyte);
    Write(mFolder / "server.log", log);
    Write(mFolder / "exact", log.substr(0, kMebibyte));
    Write(mFolder / "empty", "");
    StartServer();
    Configure(Setting("log", "server.log") + Setting("exact", "exact") + Setting("none", "empty"));
    Crash({"null"});
    EXPECT_EQ(Received("log"), log.substr(log.size() - kMebibyte));
    EXPECT_EQ(Received("exact"), log.substr(0, kMebibyte));
    EXPECT_TRUE(fs::exists(mReceived / "1-attachment_none"));
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_FALSE(ReceivedKeys(1).contains("attachments_missing"));
    EXPECT_TRUE(fs::is_empty(mDumps));
}

TEST_F(CrashAttachments, AsManyMebibytesGoAlongAsTheSettingSaysWhichIsNoFileItself) {
    const std::string log = Lines(200'000);
    Write(mFolder / "server.log", log);
    StartServer();
    Configure(Setting("log", "server.log") + "attachment_megabytes=2\n");
    Crash({"null"});
    EXPECT_EQ(Received("log").size(), 2 * kMebibyte);
    EXPECT_FALSE(ReceivedKeys(1).contains("attachments_missing"));
}

TEST_F(CrashAttachments, OfAFileThatSaysItIsEmptyAllGoesAlong) {
    StartServer();
    Configure("attachment_limits=/proc/self/limits\nattachment_megabytes=2\n");
    Crash({"null"});
    EXPECT_NE(Received("limits").find("Max open files"), std::string::npos);
}

TEST_F(CrashAttachments, AreThoseOfTheCrashWhenALeftDumpIsSent) {
    Write(mFolder / "server.log", "before the crash");
    LeaveDump(Setting("log", "server.log") + Setting("other", "missing"));
    ASSERT_EQ(KeptAttachments().size(), 1u);
    EXPECT_EQ(fs::status(KeptAttachments()[0]).permissions(), fs::perms::owner_all);
    Write(mFolder / "server.log", "a day later");
    StartServer();
    Configure();  // this configuration is used by the next crash
    EXPECT_TRUE(AwaitDelivery());
    EXPECT_EQ(Received("log"), "before the crash");
    EXPECT_EQ(ReceivedKeys(1)["attachments_missing"], "attachment_other: No such file or directory");
    EXPECT_TRUE(KeptAttachments().empty());
}

TEST_F(CrashAttachments, ThatCanNotGoAlongAreToldAndTheReportArrives) {
    ASSERT_EQ(mkfifo((mFolder / "fifo").c_str(), 0600), 0);
    fs::create_directory(mFolder / "directory");
    fs::create_symlink("loop", mFolder / "loop");
    Write(mFolder / "good", "good");
    StartServer();
    Configure(Setting("a", "fifo") + Setting("b", "directory") + Setting("c", "missing") +
              Setting("d", "loop") + "attachment_e=\nattachment_f=/dev/zero\n" + Setting("g", "good"));
    Crash({"null"});
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(Received("g"), "good");
    EXPECT_EQ(ReceivedKeys(1)["attachments_missing"],
              "attachment_a: no regular file; attachment_b: no regular file; "
              "attachment_c: No such file or directory; attachment_d: Too many levels of symbolic links; "
              "attachment_e: names no file; attachment_f: no regular file");
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashAttachments, AreEightUnlessTheConfigurationSaysElse) {
    std::string settings;
    for (int i = 1; i != 10; ++i) {
        Write(mFolder / std::to_string(i), std::to_string(i));
        settings += Setting(std::to_string(i), std::to_string(i));
    }
    StartServer();
    Configure(settings);
    Crash({"null"});
    EXPECT_EQ(Received("8"), "8");
    EXPECT_EQ(ReceivedKeys(1)["attachments_missing"], "attachment_9: more than max_attachments");
    Configure(settings + "max_attachments=9\n");
    Crash({"null"});
    EXPECT_EQ(Received("9", 2), "9");
    Configure(settings + "max_attachments=0\n");
    Crash({"null"});
    EXPECT_FALSE(fs::exists(mReceived / "3-attachment_1"));
    EXPECT_EQ(ReceivedDumps().size(), 3u);
}

TEST_F(CrashAttachments, OfARelativePathAreThoseOfTheInstallation) {
    Write(mFolder / "server.log", "the log");
    StartServer();
    Configure("attachment_log=" + fs::relative(mFolder / "server.log").string() + "\n");
    Crash({"moved"});
    EXPECT_EQ(Received("log"), "the log");
}

TEST_F(CrashAttachments, HaveNamesThatNeitherAFormNorAPathTrips) {
    Write(mFolder / "file", "content");
    StartServer();
    Configure(Setting("../a \"b\"%", "file"));
    Crash({"null"});
    EXPECT_EQ(Received("..%2Fa%20%22b%22%25"), "content");
}

TEST_F(CrashAttachments, GiveWayToACrashKey) {
    StartServer();
    Configure(Setting("log", "missing"));
    Crash({"null", "attachments_missing", "mine"});
    EXPECT_EQ(ReceivedKeys(1)["attachments_missing"], "mine");
}

TEST_F(CrashAttachments, GoWithADumpOnDemandToo) {
    Write(mFolder / "file", "content");
    StartServer();
    Configure(Setting("file", "file"));
    Crash({"dump"});
    EXPECT_EQ(Received("file"), "content");
    EXPECT_TRUE(fs::is_empty(mDumps));
}

TEST_F(CrashAttachments, LiveAsLongAsTheirDump) {
    Write(mFolder / "file", std::string(kMebibyte, 'x'));
    LeaveDump(Setting("file", "file") + "max_dumps=1\n");
    LeaveDump(Setting("file", "file") + "max_dumps=1\n");
    ASSERT_EQ(LeftDumps().size(), 1u);
    ASSERT_EQ(KeptAttachments().size(), 1u);
    EXPECT_EQ(KeptAttachments()[0].stem(), LeftDumps()[0].stem());
    // Their octets are part of the dump.
    fs::resize_file(KeptAttachments()[0] / "attachment_file", 2 * kMebibyte);
    ZBase::CrashConfigTable settings;
    ZBase::CrashConfigTable none;
    Configure("max_dump_megabytes=2\n");
    ASSERT_TRUE(ZBase::ReadCrashConfig(Config().c_str(), settings, none));
    EXPECT_EQ(ZBase::CrashStore(mDumps.string(), settings).Trim(), 1u);
    EXPECT_TRUE(fs::is_empty(mDumps));
}

TEST_F(CrashAttachments, StayWithADumpThatIsKept) {
    Write(mFolder / "file", "content");
    StartServer();
    Configure(Setting("file", "file") + "keep_dump_file=true\n");
    Crash({"null"});
    ASSERT_EQ(KeptAttachments().size(), 1u);
    EXPECT_EQ(KeptAttachments()[0].stem(), LeftDumps().at(0).stem());
}

TEST_F(CrashAttachments, WithoutADumpAreRemovedAndNothingElseIs) {
    fs::create_directory(mDumps);
    const std::string guid = "01234567-89ab-4cde-8f01-23456789abcd";
    const std::string other = "11234567-89ab-4cde-8f01-23456789abcd";
    fs::create_directory(mDumps / (guid + ".attachments"));
    Write(mDumps / (guid + ".attachments") / "attachment_log", "x");
    fs::create_directory(mDumps / "mine.attachments");
    fs::create_directory(mDumps / (other + ".attachments"));
    Write(mDumps / (other + ".sending.dmp"), "x");
    fs::create_directory_symlink(mFolder, mDumps / ("2" + guid.substr(1) + ".attachments"));
    ZBase::CrashStore(mDumps.string(), {}).Trim();
    EXPECT_FALSE(fs::exists(mDumps / (guid + ".attachments")));
    EXPECT_TRUE(fs::exists(mDumps / "mine.attachments"));
    EXPECT_TRUE(fs::exists(mDumps / (other + ".attachments")));
    EXPECT_TRUE(fs::exists(mReceived));
}

TEST_F(CrashAttachments, AreNotAddedFromWhereALinkLeads) {
    LeaveDump("");
    fs::create_directory(mFolder / "secrets");
    Write(mFolder / "secrets" / "attachment_key", "secret");
    const fs::path dump = LeftDumps().at(0);
    fs::create_directory_symlink(mFolder / "secrets", mDumps / (dump.stem().string() + ".attachments"));
    StartServer();
    Configure();
    EXPECT_TRUE(AwaitDelivery());
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_FALSE(fs::exists(mReceived / "1-attachment_key"));
    EXPECT_EQ(ContentOf(mFolder / "secrets" / "attachment_key"), "secret");
}

}  // namespace
