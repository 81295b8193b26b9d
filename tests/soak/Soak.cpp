// soak SECONDS [PLANT]: eight threads of mixed work through all subsystems under a budget that refuses one
// request in ten, while children crash and their reports are lost on the way. In rounds: between two all
// threads stand still, and memory, descriptors and threads are counted. At the end all must be as it was
// after the first rounds, and every report delivered, or kept. PLANT is a mistake that it has to tell:
// "block", "descriptor", "thread" or "report".

#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/soak/LossyServer.h"
#include "tests/soak/Work.h"
#include "tests/support/RemoveFolder.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kThreads = 8;
constexpr std::size_t kMebi = std::size_t{1} << 20;

// A child that crashes under its number, or that only starts and so has the dumps that were left sent.

[[gnu::noipa]] void Crash(int kind) {
    if (kind == 0) std::abort();
    if (kind == 1) *static_cast<volatile int*>(nullptr) = 1;
    raise(SIGFPE);
}

int RunChild(const std::string& number) {
    alarm(200);
    if (!ZBase::InstallCrashHandler()) return 3;
    if (number == "none") return 0;
    ZBase::SetCrashAttr("soak", number.c_str(), true);
    ZBase::AddCrashNote(("crash " + number).c_str());
    Crash(std::atoi(number.c_str()) % 3);
    return 4;
}

/// Where the children have their configuration and their dumps.
class Folder {
public:
    explicit Folder(const std::string& server) {
        char path[] = "/tmp/zbase-soak-XXXXXX";
        if (mkdtemp(path) == nullptr) throw std::runtime_error("no folder");
        mPath = path;
        const std::string same = "[Config]\nServerURL=" + server + "\nServerProdURL=" + server +
                                 "\ndump_path=" + Dumps().string() +
                                 "\nmax_dumps=0\nmax_dump_megabytes=0\nmax_reports_per_day=0\n";
        std::ofstream(mPath / "crash.ini") << same << "send_left=false\n";
        std::ofstream(mPath / "send.ini") << same;
    }
    ~Folder() { test::RemoveFolder(mPath); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    fs::path Dumps() const { return mPath / "dumps"; }
    std::string Configuration(bool sends) const { return mPath / (sends ? "send.ini" : "crash.ini"); }
    std::size_t CountDumps() const {
        std::size_t count = 0;
        for (const auto& entry : fs::directory_iterator(Dumps()))
            count += entry.path().extension() == ".dmp" ? 1 : 0;
        return count;
    }

private:
    fs::path mPath;
};

/// The status with which a child of this program ended.
int Run(const Folder& folder, const std::string& number) {
    std::vector<std::string> variables{"ZENT_CRASH_CONFIG_FILE=" + folder.Configuration(number == "none")};
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (std::strncmp(*variable, "ZENT_CRASH_CONFIG_FILE=", 23) != 0) variables.emplace_back(*variable);
    std::vector<char*> environment;
    for (std::string& variable : variables) environment.push_back(variable.data());
    environment.push_back(nullptr);
    std::string name = "soak";
    std::string option = "--child";
    std::string argument = number;
    char* const arguments[] = {name.data(), option.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failure = posix_spawn(&child, "/proc/self/exe", &quiet, nullptr, arguments, environment.data());
    posix_spawn_file_actions_destroy(&quiet);
    if (failure != 0) return -1;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
    }
    return status;
}

struct Measure {
    std::size_t heap;  // bytes in use
    std::size_t resident;
    std::size_t descriptors;
    std::size_t threads;
};

std::size_t CountEntries(const char* folder) {
    const fs::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

Measure TakeMeasure() {
    const struct mallinfo2 heap = mallinfo2();
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {heap.uordblks + heap.hblkhd, pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)),
            CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
}

/// The most of the second quarter, when everything that is kept is there, beside the least of the last.
bool IsFlat(const std::vector<Measure>& rounds, const char* what, std::size_t Measure::*figure,
            std::size_t slack) {
    const auto less = [figure](const Measure& one, const Measure& other) {
        return one.*figure < other.*figure;
    };
    const auto quarter = static_cast<std::ptrdiff_t>(rounds.size() / 4);
    const std::size_t before =
        (*std::max_element(rounds.begin() + quarter, rounds.begin() + 2 * quarter, less)).*figure;
    const std::size_t after = (*std::min_element(rounds.end() - quarter, rounds.end(), less)).*figure;
    std::fprintf(stderr, "%s: %zu, and %zu at the end\n", what, before, after);
    if (after <= before + slack) return true;
    std::fprintf(stderr, "NOT FLAT: %s\n", what);
    return false;
}

class Soak {
public:
    Soak(int seconds, std::string plant)
        : mFolder(mServer.Address()),
          mPlant(std::move(plant)),
          mRounds(std::clamp(seconds / 5, 12, 120)),
          mRoundTime(std::chrono::milliseconds(1000LL * seconds / mRounds)),
          mBarrier(kThreads + 2) {
        setenv("ZENT_CRASH_CONFIG_FILE", mFolder.Configuration(true).c_str(), 1);
        if (!ZBase::InstallCrashHandler()) throw std::runtime_error("no crash handler");
        ZBase::SetCrashAttr("soak", "none", true);
        ZBase::NotifyFeatureFlagMgrInitialized();
        mWorld.component = ZBASE_COMPONENTS_DIR "/Component_64.so";
    }

    bool Run() {
        std::vector<std::thread> threads;
        for (int i = 0; i != kThreads; ++i)
            threads.emplace_back([this, i] { Rounds(static_cast<unsigned int>(i)); });
        threads.emplace_back([this] { CrashRounds(); });
        std::vector<Measure> measures;
        measures.reserve(static_cast<std::size_t>(mRounds));
        for (int round = 0; round != mRounds; ++round) {
            mBarrier.arrive_and_wait();  // begin
            std::this_thread::sleep_for(mRoundTime);
            mStops = true;
            mBarrier.arrive_and_wait();  // all stand still
            mStops = false;
            mWorld.RenewBuffer();
            if (mPlant == "descriptor") mPlanted = fcntl(0, F_DUPFD_CLOEXEC, 0);
            if (mPlant == "thread") std::thread([] { pause(); }).detach();
            if (round == 2 && mPlant == "report") mServer.ForgetOne();
            measures.push_back(TakeMeasure());
            if (round % 10 == 9) Tell(round + 1, measures.back());
        }
        mEnds = true;
        mBarrier.arrive_and_wait();
        for (std::thread& thread : threads) thread.join();
        Tell(mRounds, measures.back());
        return Judge(measures);
    }

private:
    // With ZBASE_SOAK_ONLY=N only work of that number, to look for what is not flat; -1 is all.
    static int OnlyKind() {
        const char* const only = std::getenv("ZBASE_SOAK_ONLY");
        const int kind = only == nullptr ? -1 : std::atoi(only);
        return kind < static_cast<int>(soak::kOperations) ? kind : -1;
    }

    void Rounds(unsigned int seed) {
        soak::Random random(seed);
        for (;;) {
            mBarrier.arrive_and_wait();
            if (mEnds) return;
            while (!mStops) Work(random);
            mBarrier.arrive_and_wait();
        }
    }

    void Work(soak::Random& random) {
        const std::size_t kind = mOnly < 0 ? random() % soak::kOperations : static_cast<std::size_t>(mOnly);
        if (mPlant == "block") mLeaked = new char[2000];
        try {
            soak::kWork[kind].run(mWorld, random);
        } catch (const ZBase::ContractManagerAllocException&) {
            ++mRefused;
        } catch (const std::exception& failure) {
            Fail(std::string(soak::kWork[kind].name) + ": " + failure.what());
        } catch (const ZBase::Message& failure) {
            Fail(std::string(soak::kWork[kind].name) + ": " + ZBase::FormatMessage(failure, 0x409).c_str());
        }
        ++mDone[kind];
    }

    void CrashRounds() {
        for (;;) {
            mBarrier.arrive_and_wait();
            if (mEnds) return;
            while (!mStops) CrashOne();
            mBarrier.arrive_and_wait();
        }
    }

    // Now and then a start of the program, which sends what was left.
    void CrashOne() {
        const int status = ::Run(mFolder, std::to_string(mCrashes));
        if (WIFSIGNALED(status)) {
            ++mCrashes;
        } else {
            Fail("a child did not crash: " + std::to_string(status));
        }
        if (mCrashes % 20 == 0) SendLeft();
    }

    void SendLeft() {
        fs::remove(mFolder.Dumps() / "crash-sender.pause");
        if (::Run(mFolder, "none") != 0) Fail("a start of the program failed");
    }

    void Fail(const std::string& what) {
        const std::lock_guard lock(mMutex);
        if (mFailures.size() < 20) mFailures.push_back(what);
    }

    void Tell(int round, const Measure& measure) const {
        std::fprintf(
            stderr,
            "round %d of %d: %zu KiB of heap, %zu MiB resident, %zu descriptors, %zu threads; %llu crashes\n",
            round, mRounds, measure.heap / 1024, measure.resident / kMebi, measure.descriptors,
            measure.threads, mCrashes.load());
    }

    // Sends until nothing is left, or nothing goes any more.
    bool IsEachReportThere() {
        mServer.BecomeReliable();
        std::size_t left = mFolder.CountDumps();
        for (int inVain = 0; inVain != 30 && left != 0;) {
            const std::size_t before = left;
            SendLeft();
            for (int waits = 0; waits != 40 && left != 0; ++waits) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                left = mFolder.CountDumps();
            }
            inVain = left < before ? 0 : inVain + 1;
        }
        unsigned long long missing = 0;
        for (unsigned long long number = 0; number != mCrashes; ++number)
            missing += mServer.Has(number) ? 0 : 1;
        std::fprintf(stderr,
                     "reports: %llu crashes, %llu posts, %llu lost on the way, %llu delivered, %zu kept\n",
                     mCrashes.load(), mServer.Posts(), mServer.Lost(), mCrashes - missing, left);
        if (missing <= left) return true;
        std::fprintf(stderr, "LOST: %llu reports\n", missing - left);
        return false;
    }

    bool Judge(const std::vector<Measure>& measures) {
        for (std::size_t kind = 0; kind != soak::kOperations; ++kind)
            std::fprintf(stderr, "%s: %llu\n", soak::kWork[kind].name, mDone[kind].load());
        std::fprintf(stderr, "requests of the budget: %llu, %llu refused; %llu operations ended so\n",
                     mWorld.contract.requests.load(), mWorld.contract.refusals.load(), mRefused.load());
        bool isGood = IsEachReportThere();
        isGood = IsFlat(measures, "bytes of the heap", &Measure::heap, kMebi / 4) && isGood;
        isGood = IsFlat(measures, "resident bytes", &Measure::resident, 16 * kMebi) && isGood;
        isGood = IsFlat(measures, "descriptors", &Measure::descriptors, 0) && isGood;
        isGood = IsFlat(measures, "threads", &Measure::threads, 0) && isGood;
        for (const std::string& failure : mFailures) std::fprintf(stderr, "FAILED: %s\n", failure.c_str());
        return isGood && mFailures.empty();
    }

    soak::LossyServer mServer;
    Folder mFolder;
    soak::World mWorld;
    const std::string mPlant;
    const int mOnly = OnlyKind();
    const int mRounds;
    const std::chrono::milliseconds mRoundTime;
    std::barrier<> mBarrier;
    std::atomic<bool> mStops = false;
    std::atomic<bool> mEnds = false;
    std::atomic<int> mPlanted = 0;
    std::atomic<char*> mLeaked = nullptr;
    std::atomic<unsigned long long> mCrashes = 0;
    std::atomic<unsigned long long> mRefused = 0;
    std::array<std::atomic<unsigned long long>, soak::kOperations> mDone{};
    std::mutex mMutex;
    std::vector<std::string> mFailures;
};

}  // namespace

int main(int count, char** arguments) {
    if (count == 3 && std::strcmp(arguments[1], "--child") == 0) return RunChild(arguments[2]);
    const int seconds = count < 2 ? 0 : std::atoi(arguments[1]);
    if (seconds < 6) {
        std::fprintf(stderr, "usage: soak SECONDS [block|descriptor|thread|report]\n");
        return 2;
    }
    // What the C library keeps for each thread counts as in use, and grows for a long time.
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
        execv("/proc/self/exe", arguments);
        return 2;
    }
    // The translator tells each fault there.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;
    return Soak(seconds, count < 3 ? "" : arguments[2]).Run() ? 0 : 1;
}
