#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Dumps for the commands: files of the dump directory.

using CrashKeys = std::map<std::string, std::string>;

/// The dumps in a directory, ordered by name; none without a directory. Throws `Failure` if it can't be
/// listed.
std::vector<std::filesystem::path> DumpsIn(const std::filesystem::path& directory);

struct DumpedThread {
    std::uint32_t id;
    std::string name;  // empty if the dump has none
};

/// A dump's data for its report.
struct DumpedReport {
    bool isDump = false;   // the file is a complete dump
    bool hasKeys = false;  // and one of a process with crash keys
    CrashKeys keys;        // "reason" and the last words included
    std::vector<std::string> notes;
    std::vector<DumpedThread> threads;  // in their order there
    bool isForProduction = false;
};

DumpedReport ReportOfDump(const std::filesystem::path& dump);
