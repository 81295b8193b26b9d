#include "tests/growth/Judge.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace test {

namespace {

constexpr std::size_t kSteps[] = {1, 4, 16};
constexpr double kPageAndBlock = 8192;  // octets; as much may be there once whatever the length

std::size_t Times() {
    const char* const set = std::getenv("ZBASE_GROWTH_TIMES");
    return set == nullptr ? 1 : std::max<std::size_t>(std::strtoul(set, nullptr, 10), 1);
}

Figures MeasureAt(const Row& row, std::size_t length) {
    const Job job = row.prepare(length);
    return Measure(job);
}

/// The same in a child.
Figures MeasureApart(const Row& row, std::size_t length) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        int status = 1;
        try {
            const Figures figures = MeasureAt(row, length);
            status = write(ends[1], &figures, sizeof figures) == sizeof figures ? 0 : 1;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s\n", failure.what());
        }
        _exit(status);
    }
    close(ends[1]);
    Figures figures;
    const bool isRead = read(ends[0], &figures, sizeof figures) == sizeof figures;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!isRead || status != 0) throw std::runtime_error("the child failed");
    return figures;
}

double Above(double before, double after, double constant) {
    return (after - constant) / (4 * std::max(before, constant));
}

Figures Sum(const Figures& one, const Figures& other) {
    return {one.work + other.work, one.peak + other.peak, one.handed + other.handed};
}

Figures Larger(const Figures& one, const Figures& other) {
    return {std::max(one.work, other.work), std::max(one.peak, other.peak),
            std::max(one.handed, other.handed)};
}

std::string Text(const char* what, double factor, double most) {
    char text[120];
    std::snprintf(text, sizeof text, "%s grows by %.2f times the length, of which %.2f are allowed; ", what,
                  factor, most);
    return text;
}

}  // namespace

Growth MeasureGrowth(const Row& row, bool isThorough) {
    const std::vector<double> parts = isThorough ? std::vector{1.0, 1.26, 1.587} : std::vector{1.0};
    const auto measure = [&](std::size_t step, double part) {
        const double length = part * static_cast<double>(row.length * Times() * kSteps[step]);
        return row.isApart ? MeasureApart(row, static_cast<std::size_t>(length))
                           : MeasureAt(row, static_cast<std::size_t>(length));
    };
    measure(0, 1);  // what is done once in a process
    // Lengths in turns, so that a load that comes and goes meets all of them. What was counted is the same
    // each time.
    const int rounds = UsedMeter() == EMeter::eClock ? 5 : 1;
    std::array<Figures, 3> sums;
    for (const double part : parts) {
        std::array<Figures, 3> figures;
        for (int round = 0; round != rounds; ++round) {
            for (std::size_t step = 0; step != 3; ++step) {
                const Figures now = measure(step, part);
                if (round == 0) figures[step] = now;
                figures[step].work = std::min(figures[step].work, now.work);
            }
        }
        for (std::size_t step = 0; step != 3; ++step) sums[step] = Sum(sums[step], figures[step]);
    }
    const double constant = kPageAndBlock * static_cast<double>(parts.size());
    Growth growth{sums[0], {}};
    for (std::size_t step = 0; step != 2; ++step) {
        const Figures& before = sums[step];
        const Figures& after = sums[step + 1];
        growth.factor = Larger(growth.factor,
                               {Above(before.work, after.work, 0), Above(before.peak, after.peak, constant),
                                Above(before.handed, after.handed, constant)});
    }
    return growth;
}

std::string Judge(const Row& row, const Growth& growth) {
    const double most = kMostAbove * std::pow(4, row.power - 1);
    std::string wrong;
    if (growth.factor.work > most) wrong += Text("work", growth.factor.work, most);
    if (growth.factor.peak > most) wrong += Text("memory", growth.factor.peak, most);
    if (growth.factor.handed > most) wrong += Text("allocated memory", growth.factor.handed, most);
    const double largest = std::max({growth.factor.work, growth.factor.peak, growth.factor.handed});
    if (row.reason != nullptr && largest <= kMostAbove)
        wrong += Text("nothing needs the reason of the table: all of it", largest, kMostAbove);
    return wrong;
}

}  // namespace test
