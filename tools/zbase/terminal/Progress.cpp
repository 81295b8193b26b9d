#include "Progress.h"
#include "Console.h"
#include "tools/system/Terminal.h"

#include <Base/text/NumberText.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr auto kFirst = 1s;
constexpr auto kNext = 100ms;
constexpr std::size_t kWidestBar = 30;
constexpr std::size_t kWidestTitle = 30;  // octets

// The end of a name identifies it best.
std::string Short(const std::string& title) {
    std::string shown = Shown(title);
    if (shown.size() <= kWidestTitle) return shown;
    std::size_t from = shown.size() - kWidestTitle;
    while (from != shown.size() && (static_cast<unsigned char>(shown[from]) & 0xC0) == 0x80) ++from;
    return "..." + shown.substr(from);
}

}  // namespace

std::string ProgressLine(const std::string& title, std::uint64_t done, std::optional<std::uint64_t> total,
                         std::size_t columns) {
    std::string end = ZBase::GetHumanReadableSize(done);
    if (total.value_or(0) != 0) {
        const double part = static_cast<double>(std::min(done, *total)) / static_cast<double>(*total);
        const auto full = static_cast<std::size_t>(part * kWidestBar);
        end = "[" + std::string(full, '#') + std::string(kWidestBar - full, '.') + "] " +
              std::to_string(static_cast<int>(part * 100)) + " %";
    }
    const std::string line = Short(title) + "  " + end;
    return line.size() <= columns ? line : end.substr(0, columns);
}

Progress::Progress(std::string title, std::optional<std::uint64_t> total, bool isHidden)
    : mTitle(std::move(title)),
      mTotal(total),
      mCanShow(!isHidden && IsTerminalStream(2) && !IsDumbTerminal()),
      mNext(Clock::now() + kFirst) {}

void Progress::Add(std::uint64_t bytes) {
    mDone += bytes;
    if (!mCanShow || Clock::now() < mNext) return;
    mNext = Clock::now() + kNext;
    mIsShown = true;
    std::fprintf(stderr, "\r%s\033[K", ProgressLine(mTitle, mDone, mTotal, TerminalColumns() - 1).c_str());
}

void Progress::Clear() {
    if (mIsShown) std::fputs("\r\033[K", stderr);
    mIsShown = false;
}
