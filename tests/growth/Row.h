#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// The work that is measured. It may be done again and again.
using Job = std::function<void()>;

/// An operation, with one kind of input.
struct Row {
    std::string name;
    /// What is exported and measured in it: a name without its parameters, of all its forms; with them, of
    /// one; with "*" at its end, of all that begins so. Rows of one subject need to say it once.
    std::vector<std::string_view> covers;
    /// The shortest input, long enough that what each call costs does not count; the others have 4 and 16
    /// times that.
    std::size_t length;
    /// Makes the input of a length, which is not measured.
    std::function<Job(std::size_t length)> prepare;

    // What is allowed beyond the proportion, and why.
    const char* reason = nullptr;
    double power = 1;  // of the length

    /// Each length in a process of its own, as what it leaves behind stays to the end of one.
    bool isApart = false;

    /// Allows more than the proportion.
    Row&& May(double toThePower, const char* why) && {
        power = toThePower;
        reason = why;
        return std::move(*this);
    }

    Row&& Apart() && {
        isApart = true;
        return std::move(*this);
    }
};

std::vector<Row> TextRows();
std::vector<Row> MessageRows();
std::vector<Row> MessageFormRows();
std::vector<Row> XmlRows();
std::vector<Row> MemoryRows();
std::vector<Row> DiagnosticsRows();
std::vector<Row> CrashRows();
std::vector<Row> PlatformRows();

/// All of them.
const std::vector<Row>& Rows();

/// What is exported and takes no input of a length, and why; named as in `Row::covers`.
struct WithoutLength {
    const char* reason;
    std::vector<std::string_view> names;
};

const std::vector<WithoutLength>& NamesWithoutLength();

}  // namespace test
