#include "tests/soak/LossyServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <stdexcept>

namespace soak {

namespace {

// The value of the part of that name.
std::string Field(const std::string& form, const std::string& name) {
    const std::string begin = "name=\"" + name + "\"\r\n\r\n";
    const std::size_t start = form.find(begin);
    if (start == std::string::npos) return {};
    const std::size_t value = start + begin.size();
    return form.substr(value, form.find("\r\n", value) - value);
}

std::string Reply(const char* status) {
    return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";
}

}  // namespace

LossyServer::LossyServer() {
    mSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(mSocket, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(mSocket, 64) != 0 ||
        getsockname(mSocket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no server");
    mPort = ntohs(address.sin_port);
    mThread = std::thread([this] { Serve(); });
}

LossyServer::~LossyServer() {
    mStopped = true;
    mThread.join();
    close(mSocket);
}

bool LossyServer::Has(unsigned long long number) const {
    const std::lock_guard lock(mMutex);
    return number < mReceived.size() && mReceived[number];
}

bool LossyServer::WaitFor(int descriptor, int tries) const {
    for (; tries != 0 && !mStopped; --tries) {
        pollfd entry{descriptor, POLLIN, 0};
        if (poll(&entry, 1, 20) > 0) return true;
    }
    return false;
}

void LossyServer::Serve() {
    while (!mStopped) {
        if (!WaitFor(mSocket, 1)) continue;
        const int client = accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        Answer(client);
        close(client);
    }
}

void LossyServer::Answer(int client) {
    const unsigned long long way = mIsLossy ? ++mPosts % 9 : (++mPosts, 1);
    std::string form;
    char piece[65536];
    // The end of a multipart form is its boundary and two dashes. A question has no form.
    while (!form.ends_with("--\r\n") && !(form.rfind("OPTIONS", 0) == 0 && form.ends_with("\r\n\r\n"))) {
        const bool cutsOff = way == 0 && form.size() > 2000;
        const ssize_t count = !cutsOff && WaitFor(client, 250) ? read(client, piece, sizeof piece) : 0;
        if (count <= 0) {
            ++mLost;
            return;
        }
        form.append(piece, static_cast<std::size_t>(count));
    }
    if (way == 3) {
        ++mLost;
        return;
    }
    const bool isTaken = form.rfind("POST", 0) == 0 && way != 6;
    if (isTaken && !mForgets.exchange(false)) {
        const std::lock_guard lock(mMutex);
        const std::string field = Field(form, "soak");
        char* end = nullptr;
        const std::size_t number = std::strtoull(field.c_str(), &end, 10);
        if (end != field.c_str() && number < mReceived.size()) mReceived[number] = true;
    }
    if (!isTaken) ++mLost;
    const std::string reply = Reply(isTaken ? "200 OK" : "503 Service Unavailable");
    // The client may have gone; then it sends the report again.
    static_cast<void>(send(client, reply.data(), reply.size(), MSG_NOSIGNAL));
}

}  // namespace soak
