#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// One line of at most `columns` characters: the end of a title, and a bar, or the bytes done if the total is
/// unknown.
std::string ProgressLine(const std::string& title, std::uint64_t done, std::optional<std::uint64_t> total,
                         std::size_t columns);

/// Shows the progress of long work on the error stream, if that is a terminal that can rewrite a line: after
/// the first second, until the end of the object.
class Progress {
public:
    /// `total` in bytes, if it is known. Never shown with `isHidden`.
    Progress(std::string title, std::optional<std::uint64_t> total, bool isHidden);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Adds to the bytes done.
    void Add(std::uint64_t bytes);

    /// Removes the bar from the screen, before other output.
    void Clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string mTitle;
    std::optional<std::uint64_t> mTotal;
    std::uint64_t mDone = 0;
    bool mCanShow;
    bool mIsShown = false;
    Clock::time_point mNext;
};
