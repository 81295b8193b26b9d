#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace test {

enum class Manner { eAnswer, eAnswerAndHold, eAnswerWithoutEnd, eCloseEarly, eHang, eNeverAccept };

/// A server on this machine that replies to each request in the same way.
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

    /// Waits for this many requests.
    void WaitForRequests(int count) const {
        while (mRequests < count) usleep(1000);
    }

    /// Releases hanging requests.
    void Release() { mReleased = true; }

    /// Fills the queue of connections to be accepted.
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
                while (!mStopped && !mReleased) usleep(20000);
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
                if (mManner != Manner::eCloseEarly) {
                    const ssize_t written = write(client, mAnswer.data(), mAnswer.size());
                    EXPECT_EQ(written, static_cast<ssize_t>(mAnswer.size()));
                }
                // Until the client closes the connection.
                if (mManner == Manner::eAnswerAndHold && WaitFor(client)) {
                    EXPECT_LE(read(client, piece, 1), 0);
                }
                const std::string more(65536, 'x');
                while (mManner == Manner::eAnswerWithoutEnd && !mStopped &&
                       send(client, more.data(), more.size(), MSG_NOSIGNAL) > 0) {
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
    std::atomic<bool> mReleased = false;
    std::atomic<int> mRequests = 0;
    std::thread mThread;
};

}  // namespace test
