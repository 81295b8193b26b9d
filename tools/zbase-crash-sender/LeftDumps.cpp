#include "LeftDumps.h"
#include "Starter.h"

#include "tools/zbase/dumps/CrashDelivery.h"

#include <Base/crash/detail/CrashContract.h>
#include <Base/text/UnicodeConversions.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using ZBase::WideString;
using namespace ZBase::detail;

constexpr long long kLongestPause = 3600;  // in seconds

/// The pause after a failure, kept across restarts: a program that starts again and again must not try each
/// time. Its file has the number of failures, the time of the next try and the servers.
class Pause {
public:
    Pause(const fs::path& directory, const ZBase::CrashConfigTable& settings)
        : mFile(directory / kPauseOfTheSender), mFirst(NumberSetting<"send_pause_seconds">(settings)) {
        for (const WideString& address :
             {TextSetting<"ServerURL">(settings), TextSetting<"ServerProdURL">(settings)}) {
            const std::string server = ZBase::WideCharToUTF8(address.c_str(), true).c_str();
            mServers += std::to_string(server.size()) + ":" + server + " ";
        }
        std::ifstream file(mFile);
        std::string servers;
        file >> mFailures >> mNext;
        file.ignore(1);
        // Another server is tried at once.
        if (!std::getline(file, servers) || servers != mServers || mFailures < 0 || Left() > kLongestPause) {
            mFailures = 0;
            mNext = 0;
        }
    }

    // In seconds.
    long long Left() const { return std::max<long long>(mNext - std::time(nullptr), 0); }

    void Grow() {
        const long long pause =
            std::min(kLongestPause, static_cast<long long>(mFirst) << std::min(mFailures, 12));
        mFailures = std::min(mFailures + 1, 1000);
        mNext = std::time(nullptr) + pause;
        std::ofstream(mFile) << mFailures << ' ' << mNext << '\n' << mServers << '\n';
    }

    void Forget() { mFailures = 0; }

private:
    fs::path mFile;
    unsigned int mFirst;
    std::string mServers;
    int mFailures = 0;
    long long mNext = 0;
};

// False if a dump has to be tried again.
bool SendAll(CrashDelivery& delivery, const ZBase::CrashStore& store, Pause& pause) {
    bool isDone = true;
    for (const std::string& name : store.Dumps()) {
        ZBase::WideString code;
        const EDelivery result = delivery.Deliver(name, code);
        if (result == EDelivery::eSent || result == EDelivery::eSentAndKept) pause.Forget();
        // A server that does not reply for one dump is not tried for the next.
        if (result == EDelivery::eNotSent || result == EDelivery::eThrottled) return false;
        if (result == EDelivery::eInUse) isDone = false;
    }
    return isDone;
}

}  // namespace

void SendLeftDumps(unsigned int process, const std::string& directory,
                   const ZBase::CrashConfigTable& settings) {
    ZBase::CrashStore store(directory, settings);
    if (!store.BecomeSender()) return;
    if (!LeaveStarter()) return;
    const Starter starter(process);
    Pause pause(directory, settings);
    CrashDelivery delivery(directory, settings, {});
    while (pause.Left() == 0 || starter.LivesFor(std::min(pause.Left(), kLongestPause))) {
        if (!fs::is_directory(directory) || SendAll(delivery, store, pause)) break;
        pause.Grow();
    }
    delivery.CleanUp();
}
