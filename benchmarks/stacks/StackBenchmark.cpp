// Stacks compared with their peers, in one run, on code without frame pointers. Prints each goal with its
// measurement.

#include <Base/ZBase.h>

#include <absl/debugging/stacktrace.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using ZBase::gDbgHelpBuilder;

constexpr int kFrames = 20;
constexpr int kSamples = 25;

int (*gStepsByHand)(std::uint64_t*, int);
int (*gStackByHand)(int);

// Processor time, which other load on the machine affects little.
double Now() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Once(const std::function<void()>& operation) {
    const double start = Now();
    operation();
    return Now() - start;
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

/// Nanoseconds of each operation, medians over samples in which they take turns.
std::vector<double> Compare(int repetitions, const std::vector<std::function<void()>>& operations) {
    std::vector<std::vector<double>> samples(operations.size());
    for (int i = 0; i != kSamples; ++i) {
        for (std::size_t which = 0; which != operations.size(); ++which) {
            const double total = Once([&] {
                for (int round = 0; round != repetitions; ++round) operations[which]();
            });
            samples[which].push_back(total / repetitions);
        }
    }
    std::vector<double> medians;
    for (const auto& each : samples) medians.push_back(Median(each));
    return medians;
}

[[gnu::noinline]] void AtDepth(int depth, const std::function<void()>& operation) {
    if (depth == 0)
        operation();
    else
        AtDepth(depth - 1, operation);
    asm volatile("" ::: "memory");
}

void Row(const char* work, double measured, const char* unit, double ratio, const char* goal) {
    std::printf("%-58s %10.1f %-3s %8.3f  %s\n", work, measured, unit, ratio, goal);
}

/// Leaves the heap with touched memory, so that no row includes page faults.
void WarmHeap() {
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    std::vector<std::unique_ptr<char[]>> blocks(1 << 18);
    for (auto& block : blocks) block = std::make_unique<char[]>(200);
}

void Walks() {
    WarmHeap();
    std::uint64_t out[64];
    void* found[64];
    ZBase::CallStackLogger logger;
    const std::vector<double> time = Compare(
        2000, {[&] { gDbgHelpBuilder.DoStackWalk(out, kFrames, 0); }, [&] { backtrace(found, kFrames); },
               [&] { absl::GetStackTrace(found, kFrames, 0); }, [&] { gStepsByHand(out, kFrames); },
               [&] { logger.AppendCallStack(0, 0); }, [&] { gDbgHelpBuilder.DoStackWalk(out, 32, 1); }});
    Row("DoStackWalk, 20 frames; ratio to backtrace", time[0], "ns", time[0] / time[1], "at most 0.1");
    Row("  backtrace", time[1], "ns", 1, "");
    const std::string abseil = "  absl::GetStackTrace, which finds " +
                               std::to_string(absl::GetStackTrace(found, kFrames, 0)) + " of them";
    Row(abseil.c_str(), time[2], "ns", time[2] / time[1], "");
    Row("  libunwind's steps", time[3], "ns", time[3] / time[1], "");
    Row("AppendCallStack; what it takes beyond its walk", time[4] - time[5], "ns", time[4] / time[5],
        "at most 150 ns");
}

void Stacks() {
    const std::vector<double> time =
        Compare(20, {[] { ZBase::CreateCallStack(nullptr)->Delete(); }, [] { gStackByHand(256); }});
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    const double lines = stack->GetLineCount();
    stack->Delete();
    Row("CreateCallStack; ratio to doing it by hand", time[0] / 1000, "us", time[0] / time[1], "at most 1.2");
    Row("  a frame of it", time[0] / 1000 / lines, "us", 1, "at most 2 us");
}

void OpenModules() {
    for (const char* name : {"libz.so.1", "libbz2.so.1.0", "liblzma.so.5", "libexpat.so.1", "libssl.so.3",
                             "libuuid.so.1", "libicuuc.so.72", "libicui18n.so.72", "libzstd.so.1",
                             "libxml2.so.2", "libsqlite3.so.0", "libncursesw.so.6", "libcurl.so.4"})
        dlopen(name, RTLD_NOW);
}

/// Nanoseconds of `operation` in a process of its own.
double InAChild(const std::function<void()>& operation) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) {
        OpenModules();
        double time = 0;
        AtDepth(12, [&] { time = Once(operation); });
        if (write(ends[1], &time, sizeof time) != sizeof time) std::abort();
        _exit(0);
    }
    double time = 0;
    if (read(ends[0], &time, sizeof time) != sizeof time) std::abort();
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return time;
}

void FirstStacks() {
    std::vector<double> own;
    std::vector<double> byHand;
    for (int i = 0; i != 9; ++i) {
        own.push_back(InAChild([] { ZBase::CreateCallStack(nullptr)->Delete(); }));
        byHand.push_back(InAChild([] { gStackByHand(256); }));
    }
    Row("first CreateCallStack, 20 modules; ratio to by hand", Median(own) / 1e6, "ms",
        Median(own) / Median(byHand), "at most 1.5");
}

void Logs() {
    ZBase::CallStackLogger logger;
    constexpr std::uint64_t kDistinct = 500;
    const auto code = reinterpret_cast<std::uint64_t>(dlsym(RTLD_DEFAULT, "_ZNSt8ios_base4InitC1Ev"));
    std::uint64_t next = 0;
    const auto fill = [&](int records, bool areEqual) {
        for (int i = 0; i != records; ++i) {
            logger.AppendCallStack(0, 39);
            auto* record = *std::prev(logger.end());
            for (int frame = 0; frame != kFrames; ++frame)
                record->addresses[frame] =
                    code +
                    16 * (areEqual ? std::uint64_t(frame) + std::uint64_t(i) % 100 : next++ % kDistinct);
        }
    };
    fill(10'000, false);
    const int output = dup(STDOUT_FILENO);
    std::fflush(stdout);
    if (std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
    const double report = Once([&] { logger.FprintfCallStack("/dev/null"); });
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    Row("FprintfCallStack, 10,000 records, 500 addresses", report / 1e6, "ms", report / 1e9,
        "under a second");
    fill(10'000, true);
    const double folding = Once([&] { logger.RemoveDuplicates(); });
    Row("RemoveDuplicates, 20,000 records", folding / 1e6, "ms", folding / 20'000, "ns a record as ratio");
}

void Leaks() {
    using namespace ZBase::Literals;
    ZBase::RefCountCallStackTracer* tracer = ZBase::CreateRefCountCallStackTracer("Objects"_w, "/dev/null");
    for (std::uintptr_t i = 1; i <= 20'000; ++i) tracer->RecordRefCount(reinterpret_cast<void*>(i * 16), 1);
    const double report = Once([&] { tracer->ReportLeaks(); });
    Row("ReportLeaks, 20,000 objects", report / 1e6, "ms", report / 1e9, "under a second");
    tracer->Clear();
    tracer->Delete();
}

}  // namespace

int main() {
    void* byHand = dlopen(BY_HAND, RTLD_NOW | RTLD_LOCAL);
    if (byHand == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    gStepsByHand = reinterpret_cast<int (*)(std::uint64_t*, int)>(dlsym(byHand, "StepsByHand"));
    gStackByHand = reinterpret_cast<int (*)(int)>(dlsym(byHand, "StackByHand"));
    FirstStacks();
    AtDepth(30, Walks);
    AtDepth(12, Stacks);
    Logs();
    AtDepth(12, Leaks);
}
