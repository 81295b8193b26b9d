#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test {

/// A server on this machine that may be queried before a post. Its replies are status and head lines.
class QuestionedServer {
public:
    /// An empty `toQuestion`: no reply.
    QuestionedServer(std::string toQuestion, std::string toPacked, std::string toPlain)
        : mToQuestion(std::move(toQuestion)), mToPacked(std::move(toPacked)), mToPlain(std::move(toPlain)) {
        mSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        bind(mSocket, reinterpret_cast<sockaddr*>(&address), length);
        listen(mSocket, 16);
        getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length);
        mPort = ntohs(address.sin_port);
        mThread = std::thread([this] { Serve(); });
    }
    ~QuestionedServer() {
        mStopped = true;
        mThread.join();
        close(mSocket);
    }

    std::string Address() const { return "http://127.0.0.1:" + std::to_string(mPort) + "/"; }

    /// The methods of the requests, with "packed" for compressed ones.
    std::vector<std::string> Requests() {
        const std::lock_guard lock(mLock);
        return mRequests;
    }

private:
    bool WaitFor(int descriptor) const {
        while (!mStopped) {
            pollfd entry{descriptor, POLLIN, 0};
            if (poll(&entry, 1, 20) > 0) return true;
        }
        return false;
    }

    // Up to the end of its body; empty if the client closes before.
    std::string ReadRequest(int client) const {
        std::string request;
        std::size_t whole = std::string::npos;
        char piece[65536];
        while (request.size() < whole && WaitFor(client)) {
            const ssize_t count = read(client, piece, sizeof piece);
            if (count <= 0) return "";
            request.append(piece, static_cast<std::size_t>(count));
            const std::size_t head = request.find("\r\n\r\n");
            if (whole != std::string::npos || head == std::string::npos) continue;
            const std::size_t length = request.find("Content-Length: ");
            whole = head + 4 + (length < head ? std::strtoull(&request[length + 16], nullptr, 10) : 0);
        }
        return request;
    }

    void Answer(int client, const std::string& request) {
        const bool isQuestion = request.starts_with("OPTIONS ");
        const std::string head = request.substr(0, request.find("\r\n\r\n"));
        const bool isPacked = head.find("Content-Encoding: gzip") != std::string::npos;
        {
            const std::lock_guard lock(mLock);
            mRequests.push_back((isPacked ? "packed " : "") + request.substr(0, request.find(' ')));
        }
        const std::string& words = isQuestion ? mToQuestion : isPacked ? mToPacked : mToPlain;
        char ignored = 0;
        while (words.empty() && WaitFor(client) && read(client, &ignored, 1) > 0) {
        }
        if (words.empty()) return;
        std::string answer = "HTTP/1.1 " + words + "\r\nConnection: close\r\n";
        if (words.starts_with("204"))
            answer += "\r\n";
        else
            answer += std::string("Content-Length: 2\r\n\r\n") + (isQuestion ? "" : "ok");
        send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    }

    void Serve() {
        while (WaitFor(mSocket)) {
            const int client = accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC);
            const std::string request = ReadRequest(client);
            if (!request.empty()) Answer(client, request);
            close(client);
        }
    }

    std::string mToQuestion;
    std::string mToPacked;
    std::string mToPlain;
    int mSocket = -1;
    int mPort = 0;
    std::atomic<bool> mStopped = false;
    std::mutex mLock;
    std::vector<std::string> mRequests;
    std::thread mThread;
};

}  // namespace test
