#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace soak {

/// A report server on this machine on whose way reports are lost: of three posts one is cut off in the
/// middle, or ends without an answer, or with an answer that tells to come again. It knows the crash key
/// "soak" of each report that it has acknowledged.
class LossyServer {
public:
    LossyServer();
    ~LossyServer();
    LossyServer(const LossyServer&) = delete;
    LossyServer& operator=(const LossyServer&) = delete;

    std::string Address() const { return "http://127.0.0.1:" + std::to_string(mPort) + "/"; }

    /// From now on nothing is lost.
    void BecomeReliable() { mIsLossy = false; }

    /// From now on it acknowledges one report that it then forgets.
    void ForgetOne() { mForgets = true; }

    /// Whether it has the report of that number.
    bool Has(unsigned long long number) const;
    unsigned long long Posts() const { return mPosts; }
    unsigned long long Lost() const { return mLost; }

private:
    void Serve();
    void Answer(int client);
    bool WaitFor(int descriptor, int tries) const;

    int mSocket = -1;
    int mPort = 0;
    std::atomic<bool> mStopped = false;
    std::atomic<bool> mIsLossy = true;
    std::atomic<bool> mForgets = false;
    std::atomic<unsigned long long> mPosts = 0;
    std::atomic<unsigned long long> mLost = 0;
    mutable std::mutex mMutex;
    std::vector<bool> mReceived = std::vector<bool>(10'000'000);  // all at once, so that memory stays flat
    std::thread mThread;
};

}  // namespace soak
