// A query of a feature compared with a mutex with an unordered map, and eight querying threads with one.

#include <Base/ZBase.h>

#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "benchmarks/support/Beside.h"

namespace {

using namespace ZBase;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kQueries = 20000;

const unsigned short* const kNames[] = {"FolioEA"_w, "Engine/AJFE"_w, "ENGINE/ParallelAE"_w,
                                        "DocServices/ShortcutCache"_w, "Base/UseLockFreeBuffer"_w};

class PeerSwitches {
public:
    void Set(const unsigned short* name, bool enabled) {
        const std::lock_guard lock(mLock);
        mFlags[Key(name)] = enabled;
    }
    bool Ask(const unsigned short* name) {
        const std::u16string key = Key(name);
        const std::lock_guard lock(mLock);
        const auto flag = mFlags.find(key);
        return flag == mFlags.end() || flag->second;
    }

private:
    static std::u16string Key(const unsigned short* name) {
        std::size_t length = 0;
        while (name[length] != 0) ++length;
        return std::u16string(name, name + length);
    }

    std::mutex mLock;
    std::unordered_map<std::u16string, bool> mFlags;
};

// Calls of `ask` on this many threads at once.
template <class Ask>
void Together(std::size_t threads, Ask ask) {
    std::vector<std::thread> all;
    for (std::size_t i = 0; i != threads; ++i) {
        all.emplace_back([=] {
            for (std::size_t turn = 0; turn != kThreads * kQueries / threads; ++turn) ask();
        });
    }
    for (std::thread& thread : all) thread.join();
}

}  // namespace

int main() {
    // As many entries as the library has, in both.
    constexpr std::size_t kFlags = 26;
    std::vector<std::vector<unsigned short>> names;
    for (std::size_t i = 0; i != kFlags - std::size(kNames); ++i) {
        const std::string name = std::string("Server/Feature").append(std::to_string(i));
        names.emplace_back(name.c_str(), name.c_str() + name.size() + 1);
    }
    PeerSwitches peer;
    for (const auto& name : names) peer.Set(name.data(), true);
    for (const unsigned short* name : kNames) peer.Set(name, true);
    NotifyFeatureFlagMgrInitialized();

    bool found = false;
    for (const unsigned short* name : kNames) {
        bench::Beside(
            std::string("query of ") + WideCharToUTF8(name, false).c_str(), 0,
            [&] {
                found = IsFeatureEnabled(name);
                bench::Use(&found);
            },
            [&] {
                found = peer.Ask(name);
                bench::Use(&found);
            });
    }

    const auto ask = [] {
        const bool enabled = IsFeatureEnabled(kNames[0]);
        bench::Use(&enabled);
    };
    bench::Beside(
        "queries of eight threads, beside one", 0, [&] { Together(kThreads, ask); },
        [&] { Together(1, ask); }, {40, 1e-3, bench::WallSeconds});
}
