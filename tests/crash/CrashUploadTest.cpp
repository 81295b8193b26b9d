#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/crash/CrashBench.h"

// Report servers that do not take the report: the dump stays, and the process ends by its crash all the same.

namespace {

using test::ChildResult;

enum class Manner { eAnswer, eCloseEarly, eHang, eNeverAccept };

/// A server on this machine that answers each request in one way.
class FixedServer {
public:
    explicit FixedServer(Manner manner, const std::string& answer = "") : mManner(manner), mAnswer(answer) {
        mSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(mSocket, reinterpret_cast<sockaddr*>(&address), length);
        listen(mSocket, manner == Manner::eNeverAccept ? 0 : 16);
        getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length);
        mPort = ntohs(address.sin_port);
        if (manner != Manner::eNeverAccept) mThread = std::thread([this] { Serve(); });
    }
    ~FixedServer() {
        mStopped = true;
        if (mThread.joinable()) mThread.join();
        close(mSocket);
    }

    std::string Address() const { return "http://127.0.0.1:" + std::to_string(mPort) + "/"; }
    int Requests() const { return mRequests; }

    /// Takes the places of those who wait to be accepted.
    void FillQueue() {
        for (int i = 0; i != 8; ++i) {
            const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons(static_cast<std::uint16_t>(mPort));
            connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
        }
    }

private:
    bool WaitFor(int descriptor) const {
        while (!mStopped) {
            pollfd entry{descriptor, POLLIN, 0};
            if (poll(&entry, 1, 20) > 0) return true;
        }
        return false;
    }

    void Serve() {
        while (WaitFor(mSocket)) {
            const int client = accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC);
            ++mRequests;
            if (mManner == Manner::eHang) {
                while (!mStopped) usleep(20000);
            } else {
                std::string request;
                char piece[65536];
                // The end of a multipart form is its boundary and two dashes.
                const std::size_t enough = mManner == Manner::eCloseEarly ? 1000 : std::string::npos;
                while (request.size() < enough && !request.ends_with("--\r\n") && WaitFor(client)) {
                    const ssize_t count = read(client, piece, sizeof piece);
                    if (count <= 0) break;
                    request.append(piece, static_cast<std::size_t>(count));
                }
                if (mManner == Manner::eAnswer) {
                    const ssize_t written = write(client, mAnswer.data(), mAnswer.size());
                    EXPECT_EQ(written, static_cast<ssize_t>(mAnswer.size()));
                }
            }
            close(client);
        }
    }

    Manner mManner;
    std::string mAnswer;
    int mSocket = -1;
    int mPort = 0;
    std::atomic<bool> mStopped = false;
    std::atomic<int> mRequests = 0;
    std::thread mThread;
};

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
    for (const char* status :
         {"500 Broken", "404 Nowhere", "413 Too large", "302 Elsewhere", "204 Nothing"}) {
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

TEST_F(CrashUpload, ReportThatFailsLeavesADumpOnDemandSuccessful) {
    mServer = "http://127.0.0.1:1/";
    Configure();
    EXPECT_EQ(Crash({"dump"}).output, "1\n");
    EXPECT_EQ(LeftDumps().size(), 1u);
}

// The one test that takes its time: the bounds are 10 seconds for a connection and 60 for all.
TEST_F(CrashUpload, ServerThatHangsForEverIsNotWaitedForLongerThanTheBounds) {
    using std::chrono::steady_clock;
    const FixedServer hanging(Manner::eHang);
    FixedServer full(Manner::eNeverAccept);
    full.FillQueue();
    const auto secondsUntilTheEnd = [this](const std::string& server) {
        mServer = server;
        const std::string file = mFolder / (server.substr(server.rfind(':') + 1, 4) + ".ini");
        std::ofstream(file) << "[Config]\nServerURL=" << server
                            << "\nServerProdURL=\ndump_path=" << mDumps.string();
        const steady_clock::time_point start = steady_clock::now();
        EXPECT_EQ(Crash({"null"}, {"ZENT_CRASH_CONFIG_FILE=" + file}).signal, SIGSEGV);
        return std::chrono::duration<double>(steady_clock::now() - start).count();
    };
    double connecting = 0;
    std::filesystem::create_directory(mDumps);
    std::thread beside([&] { connecting = secondsUntilTheEnd(full.Address()); });
    usleep(200000);
    const double whole = secondsUntilTheEnd(hanging.Address());
    beside.join();
    EXPECT_NEAR(connecting, 10, 3);
    EXPECT_NEAR(whole, 60, 3);
    EXPECT_EQ(LeftDumps().size(), 2u);
}

class CrashUploadOverTls : public test::CrashBench {
protected:
    void SetUp() override {
        const ChildResult made =
            test::RunChild({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                            "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                            Certificate() + ".key", "-out", Certificate()});
        ASSERT_EQ(made.exitCode, 0) << made.errors;
        StartServer(Certificate());
        ASSERT_EQ(mServer.rfind("https://", 0), 0u) << mServer;
        Configure();
    }
    std::string Certificate() const { return mFolder / "server.pem"; }
};

TEST_F(CrashUploadOverTls, TrustedCertificateIsAccepted) {
    EXPECT_EQ(Crash({"null"}, {"SSL_CERT_FILE=" + Certificate(), "CURL_CA_BUNDLE"}).signal, SIGSEGV);
    EXPECT_EQ(Crash({"null"}, {"CURL_CA_BUNDLE=" + Certificate(), "SSL_CERT_FILE"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashUploadOverTls, AnyOtherIsRefused) {
    EXPECT_EQ(Crash({"null"}, {"SSL_CERT_FILE", "CURL_CA_BUNDLE"}).signal, SIGSEGV);
    EXPECT_TRUE(ReceivedDumps().empty());
    EXPECT_EQ(LeftDumps().size(), 1u);
}

}  // namespace
