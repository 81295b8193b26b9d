#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// One line of at most `columns` characters: the end of a title, and a bar, or where the total is not known
/// the bytes that are done.
std::string ProgressLine(const std::string& title, std::uint64_t done, std::optional<std::uint64_t> total,
                         std::size_t columns);

/// Shows on the error stream, if that is a terminal that can go back in a line, how far a long work has come:
/// from the first second on, until the object goes.
class Progress {
public:
    /// `total` in bytes, if it is known. Never shown with `isHidden`.
    Progress(std::string title, std::optional<std::uint64_t> total, bool isHidden);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many more bytes are done.
    void Add(std::uint64_t bytes);

    /// Takes the bar off the screen, for what is to be written there.
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
