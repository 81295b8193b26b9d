// Runs an empty program with and without the library in turn, and prints the medians of their times and of
// their peak resident memory.

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int kRuns = 200;

struct Samples {
    std::vector<double> milliseconds;
    std::vector<double> mebibytes;
};

void Run(const char* program, Samples& samples) {
    const char* arguments[] = {program, nullptr};
    char* noEnvironment[] = {nullptr};
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    rusage usage{};
    int status = 0;
    if (posix_spawn(&child, program, nullptr, nullptr, const_cast<char**>(arguments), noEnvironment) != 0 ||
        wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "%s does not run\n", program);
        std::exit(1);
    }
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    samples.milliseconds.push_back(time.count());
    samples.mebibytes.push_back(static_cast<double>(usage.ru_maxrss) / 1024);
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + kRuns / 2, values.end());
    return values[kRuns / 2];
}

}  // namespace

int main() {
    Samples cxx;
    Samples zbase;
    for (int i = 0; i != kRuns; ++i) {
        Run(EMPTY_CXX, cxx);
        Run(EMPTY_ZBASE, zbase);
    }
    const auto print = [](const char* name, double milliseconds, double mebibytes) {
        std::printf("%-28s %8.2f ms %8.2f MiB\n", name, milliseconds, mebibytes);
    };
    print("empty, C++ runtime", Median(cxx.milliseconds), Median(cxx.mebibytes));
    print("empty, C++ runtime and ZBase", Median(zbase.milliseconds), Median(zbase.mebibytes));
    print("difference", Median(zbase.milliseconds) - Median(cxx.milliseconds),
          Median(zbase.mebibytes) - Median(cxx.mebibytes));
    std::puts("goal: a difference of at most 3 ms and 2 MiB");
}
