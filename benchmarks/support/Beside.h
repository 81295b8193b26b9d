#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

// The time of a piece of work relative to a peer's, for programs whose rows scripts/bench.sh collects.
//
// The two run in turn in many short rounds, and each round gives a ratio, so other load on the machine
// affects both alike. The results are the median of the ratios, and the quartiles as their spread. Time is
// processor time of the calling thread.

namespace bench {

/// Keeps the compiler from removing the computation.
inline void Use(const void* value) {
    asm volatile("" : : "r"(value) : "memory");
}

inline double ProcessorSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double WallSeconds() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Seconds for one turn of `work`.
template <class Work>
double Seconds(Work& work, std::size_t turns, double (*clock)() = ProcessorSeconds) {
    const double start = clock();
    for (std::size_t turn = 0; turn != turns; ++turn) work();
    return std::max(clock() - start, 1e-9) / static_cast<double>(turns);
}

inline double At(std::vector<double>& sorted, double part) {
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

/// The result of one row; seconds are the medians, ratios those of our time to the peer's.
struct Measured {
    double ours = 0;
    double peers = 0;
    double ratio = 0;
    double low = 0;
    double high = 0;
};

struct Rounds {
    int count = 150;
    double seconds = 1e-4;  // for each of the two in a round
    double (*clock)() = ProcessorSeconds;
};

template <class Ours, class Peers>
Measured Compare(Ours ours, Peers peers, Rounds rounds = {}) {
    const auto turns = [&rounds](auto& work) {
        Seconds(work, 1, rounds.clock);
        const double one = Seconds(work, 3, rounds.clock);
        return std::max<std::size_t>(1, static_cast<std::size_t>(rounds.seconds / one));
    };
    const std::size_t ourTurns = turns(ours);
    const std::size_t peerTurns = turns(peers);
    std::vector<double> times, peerTimes, ratios;
    for (int round = 0; round != rounds.count; ++round) {
        times.push_back(Seconds(ours, ourTurns, rounds.clock));
        peerTimes.push_back(Seconds(peers, peerTurns, rounds.clock));
        ratios.push_back(times.back() / peerTimes.back());
    }
    std::sort(times.begin(), times.end());
    std::sort(peerTimes.begin(), peerTimes.end());
    std::sort(ratios.begin(), ratios.end());
    return {At(times, 0.5), At(peerTimes, 0.5), At(ratios, 0.5), At(ratios, 0.25), At(ratios, 0.75)};
}

/// One line of a benchmark's result, with fields separated by tabs: the row, octets of the work (0 if that is
/// meaningless), nanoseconds of ours and of the peer's, the ratio and its quartiles.
inline void Tell(const std::string& row, std::size_t octets, const Measured& measured) {
    std::printf("%s\t%zu\t%.1f\t%.1f\t%.3f\t%.3f\t%.3f\n", row.c_str(), octets, measured.ours * 1e9,
                measured.peers * 1e9, measured.ratio, measured.low, measured.high);
    std::fflush(stdout);
}

template <class Ours, class Peers>
void Beside(const std::string& row, std::size_t octets, Ours ours, Peers peers, Rounds rounds = {}) {
    Tell(row, octets, Compare(ours, peers, rounds));
}

}  // namespace bench
