#include <TestPlaces.h>
#include <unistd.h>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/crash/CrashBench.h"
#include "tests/crash/FixedServer.h"

// Report servers that do not accept the report: the dump stays, and the process ends by its crash all the
// same.

namespace {

using test::ChildResult;
using test::FixedServer;
using test::Manner;

std::string Answer(const std::string& status) {
    return "HTTP/1.1 " + status + "\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";
}

class CrashUpload : public test::CrashBench {
protected:
    void ExpectDumpStays(const std::string& server) {
        mServer = server;
        Configure();
        EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
        ASSERT_EQ(LeftDumps().size(), 1u);
        EXPECT_EQ(test::ReadDumpFile(LeftDumps()[0]).crashedThread, 0);
    }
};

TEST_F(CrashUpload, DumpStaysWhenNoServerIsThere) {
    ExpectDumpStays("http://127.0.0.1:1/");
}

TEST_F(CrashUpload, DumpStaysWhenTheServerHasNoAddress) {
    ExpectDumpStays("http://no.such.host.invalid/");
}

TEST_F(CrashUpload, DumpStaysWhenTheAddressIsNone) {
    ExpectDumpStays("");
}

TEST_F(CrashUpload, DumpStaysWhenTheAddressIsNotOfTheWeb) {
    ExpectDumpStays("file:///tmp/");
}

TEST_F(CrashUpload, DumpStaysWhenTheServerAnswersAnythingButSuccess) {
    for (const char* status : {"500 Broken", "404 Nowhere", "413 Too large", "302 Elsewhere", "199 Early"}) {
        const FixedServer server(Manner::eAnswer, Answer(status));
        ExpectDumpStays(server.Address());
        EXPECT_EQ(server.Requests(), 1);
        std::filesystem::remove(LeftDumps()[0]);
    }
}

TEST_F(CrashUpload, DumpStaysWhenTheServerTalksNonsense) {
    const FixedServer server(Manner::eAnswer, "nonsense\r\n\r\n");
    ExpectDumpStays(server.Address());
}

TEST_F(CrashUpload, DumpStaysWhenTheServerClosesEarly) {
    const FixedServer server(Manner::eCloseEarly);
    ExpectDumpStays(server.Address());
}

TEST_F(CrashUpload, DumpGoesWhenTheServerAnswersSuccess) {
    const FixedServer server(Manner::eAnswer, Answer("200 OK"));
    mServer = server.Address();
    Configure();
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    EXPECT_TRUE(LeftDumps().empty());
    EXPECT_EQ(server.Requests(), 1);
}

TEST_F(CrashUpload, DumpGoesWithEveryStatusOfSuccess) {
    for (const char* status : {"200 OK", "201 Created", "204 Nothing", "299 Last"}) {
        const FixedServer server(Manner::eAnswer, Answer(status));
        mServer = server.Address();
        Configure();
        EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
        EXPECT_TRUE(LeftDumps().empty()) << status;
    }
}

TEST_F(CrashUpload, DumpGoesBeforeTheBodyOfTheAnswerIsThere) {
    for (const char* answer : {"HTTP/1.1 200 OK\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"}) {
        const FixedServer server(Manner::eAnswerAndHold, answer);
        mServer = server.Address();
        Configure();
        EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
        EXPECT_TRUE(LeftDumps().empty());
    }
}

TEST_F(CrashUpload, SchemeOfTheAddressMayBeInCapitals) {
    const FixedServer server(Manner::eAnswer, Answer("200 OK"));
    mServer = "HTTP" + server.Address().substr(4);
    Configure();
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    EXPECT_TRUE(LeftDumps().empty());
}

// Replaces the sender: it writes its input to a file.
TEST_F(CrashUpload, SenderHasLimitsOfItsOwn) {
    Configure();
    std::filesystem::copy_file(ZBASE_LIBRARY, mFolder / "libZBase.so.1");
    const std::filesystem::path sender = mFolder / "zbase-crash-sender";
    std::ofstream(sender) << "#!/bin/sh\n(ulimit -n; ulimit -t; ulimit -c; ulimit -v) >"
                          << (mFolder / "limits").string() << "\ncat >/dev/null\nprintf 2 >&0\n";
    std::filesystem::permissions(sender, std::filesystem::perms::owner_all);
    EXPECT_EQ(Crash({"no-memory"}, {"LD_LIBRARY_PATH=" + mFolder.string()}).signal, SIGSEGV);
    std::ifstream limits(mFolder / "limits");
    int descriptors = 0;
    int seconds = 0;
    int core = -1;
    limits >> descriptors >> seconds >> core;
    EXPECT_EQ(descriptors, 256);
    EXPECT_EQ(seconds, 60);
    EXPECT_EQ(core, 0);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashUpload, GoesThroughTheProxyOfTheEnvironment) {
    const FixedServer proxy(Manner::eAnswer, Answer("200 OK"));
    mServer = "http://reports.invalid/";
    Configure();
    EXPECT_EQ(Crash({"null"}, {"http_proxy=" + proxy.Address(), "no_proxy", "NO_PROXY"}).signal, SIGSEGV);
    EXPECT_EQ(proxy.Requests(), 1);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashUpload, DumpStaysWhenTheSenderDoesNotStandBesideTheLibrary) {
    StartServer();
    Configure();
    std::filesystem::copy_file(ZBASE_LIBRARY, mFolder / "libZBase.so.1");
    EXPECT_EQ(Crash({"null"}, {"LD_LIBRARY_PATH=" + mFolder.string()}).signal, SIGSEGV);
    EXPECT_EQ(LeftDumps().size(), 1u);
    EXPECT_TRUE(ReceivedDumps().empty());
}

TEST_F(CrashUpload, ReportThatFailsLeavesADumpOnDemandSuccessful) {
    mServer = "http://127.0.0.1:1/";
    Configure();
    EXPECT_EQ(Crash({"dump"}).output, "1\n");
    EXPECT_EQ(LeftDumps().size(), 1u);
}

class CrashUploadOfADumpThatHangs : public test::CrashBench {
protected:
    CrashUploadOfADumpThatHangs() {
        mServer = mHanging.Address();
        Configure();
    }
    FixedServer mHanging{Manner::eHang};
};

TEST_F(CrashUploadOfADumpThatHangs, RefusesAllOthersMeanwhile) {
    const auto child = CrashInBackground({"dumps-at-once"});
    EXPECT_EQ(child->ReadLine(), "nine are refused");
    mHanging.WaitForRequests(1);
    mHanging.Release();
    EXPECT_EQ(child->ReadLine(), "1 is written");
    EXPECT_EQ(child->Wait(), 0);
    EXPECT_EQ(LeftDumps().size(), 1u);
    EXPECT_EQ(mHanging.Requests(), 1);
}

TEST_F(CrashUploadOfADumpThatHangs, LetsACrashBeDumpedMeanwhile) {
    const auto child = CrashInBackground({"dump-beside"});
    mHanging.WaitForRequests(1);
    child->Signal(SIGSEGV);
    while (LeftDumps().size() != 2) usleep(1000);
    mHanging.Release();
    EXPECT_EQ(child->Wait(), SIGSEGV);
    EXPECT_EQ(mHanging.Requests(), 2);
    int crashes = 0;
    for (const auto& dump : LeftDumps()) crashes += test::ReadDumpFile(dump).Has("WaitBesideADump");
    EXPECT_EQ(crashes, 1);
}

// The one slow test: the limits are 10 seconds for a connection and 60 for all.
TEST_F(CrashUpload, ServerThatHangsForEverIsNotWaitedForLongerThanTheBounds) {
    using std::chrono::steady_clock;
    const FixedServer hanging(Manner::eHang);
    FixedServer full(Manner::eNeverAccept);
    full.FillQueue();
    std::filesystem::create_directory(mDumps);
    const auto run = [this](const std::string& kind, const std::string& server, const std::string& name,
                            ChildResult& result) {
        const std::string file = mFolder / name;
        std::ofstream(file) << "[Config]\nServerURL=" << server
                            << "\nServerProdURL=\ndump_path=" << mDumps.string();
        const steady_clock::time_point start = steady_clock::now();
        result = Crash({kind}, {"ZENT_CRASH_CONFIG_FILE=" + file});
        return std::chrono::duration<double>(steady_clock::now() - start).count();
    };
    struct Wait {
        const char* kind;
        const FixedServer& server;
        double bound;
        ChildResult result;
        double seconds;
    } waits[] = {{"null", full, 10, {}, 0}, {"null", hanging, 60, {}, 0}, {"dump", hanging, 60, {}, 0}};
    std::vector<std::thread> threads;
    for (Wait& wait : waits) {
        threads.emplace_back([&] {
            const std::string name = std::to_string(&wait - waits) + ".ini";
            wait.seconds = run(wait.kind, wait.server.Address(), name, wait.result);
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const Wait& wait : waits) {
        EXPECT_GE(wait.seconds, wait.bound - 1);
        EXPECT_LT(wait.seconds, wait.bound + 30);  // the system may be busy
    }
    EXPECT_EQ(waits[0].result.signal, SIGSEGV);
    EXPECT_EQ(waits[1].result.signal, SIGSEGV);
    EXPECT_EQ(waits[2].result.output, "1\n");
    EXPECT_EQ(LeftDumps().size(), 3u);
}

class CrashUploadOverTls : public test::CrashBench {
protected:
    void Serve(const std::string& host) {
        const ChildResult made =
            test::RunChild({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                            "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:" + host, "-keyout",
                            Certificate() + ".key", "-out", Certificate()});
        ASSERT_EQ(made.exitCode, 0) << made.errors;
        StartServer(Certificate());
        ASSERT_EQ(mServer.rfind("https://", 0), 0u) << mServer;
        Configure();
    }
    std::string Certificate() const { return mFolder / "server.pem"; }
};

TEST_F(CrashUploadOverTls, TrustedCertificateIsAccepted) {
    Serve("127.0.0.1");
    EXPECT_EQ(Crash({"null"}, {"SSL_CERT_FILE=" + Certificate(), "CURL_CA_BUNDLE"}).signal, SIGSEGV);
    EXPECT_EQ(Crash({"null"}, {"CURL_CA_BUNDLE=" + Certificate(), "SSL_CERT_FILE"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashUploadOverTls, CertificateThatIsNotTrustedIsRefused) {
    Serve("127.0.0.1");
    EXPECT_EQ(Crash({"null"}, {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}).signal, SIGSEGV);
    EXPECT_TRUE(ReceivedDumps().empty());
    EXPECT_EQ(LeftDumps().size(), 1u);
}

TEST_F(CrashUploadOverTls, CertificateOfAnotherHostIsRefused) {
    Serve("127.0.0.2");
    EXPECT_EQ(Crash({"null"}, {"SSL_CERT_FILE=" + Certificate(), "CURL_CA_BUNDLE"}).signal, SIGSEGV);
    EXPECT_TRUE(ReceivedDumps().empty());
    EXPECT_EQ(LeftDumps().size(), 1u);
}

}  // namespace
