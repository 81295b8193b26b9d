#include <TestPlaces.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/crash/CrashBench.h"

namespace test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> Split(const std::string& line, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(line);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// Puts the symbols of a file where the dump reader looks for them, unless they are there.
void StoreSymbols(const fs::path& root, const std::string& file) {
    const std::string header = RunChild({ZBASE_BREAKPAD_TOOLS "/dump_syms", "-i", file}).output;
    const std::vector<std::string> words = Split(header.substr(0, header.find('\n')), ' ');
    const std::string& id = words.at(3);
    const std::string& name = words.at(4);
    const fs::path place = root / name / id / (name + ".sym");
    if (fs::exists(place)) return;
    fs::create_directories(place.parent_path());
    const fs::path unfinished = place.string() + std::to_string(getpid());
    std::ofstream(unfinished) << RunChild({ZBASE_BREAKPAD_TOOLS "/dump_syms", file}).output;
    fs::rename(unfinished, place);
}

// Symbols of the crashing program, and of its libraries.
fs::path Symbols() {
    static const fs::path folder = [] {
        const fs::path root = fs::path(ZBASE_BUILD_DIR) / "crash-symbols";
        const std::string program = ChildProgram("CrashProbe");
        StoreSymbols(root, program);
        for (const char* probe : {"ConfinedProbe", "CrashStormProbe"})
            StoreSymbols(root, ChildProgram(probe));
        std::istringstream libraries(RunChild({"/usr/bin/ldd", program}).output);
        for (std::string word; libraries >> word;) {
            if (word[0] == '/' && word.find("ld-linux") == std::string::npos) StoreSymbols(root, word);
        }
        return root;
    }();
    return folder;
}

}  // namespace

ReadDump ReadDumpFile(const fs::path& dump) {
    const std::string text =
        RunChild({ZBASE_BREAKPAD_TOOLS "/minidump_stackwalk", "-m", dump, Symbols()}).output;
    ReadDump result{"", -1, {}};
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const std::vector<std::string> parts = Split(line, '|');
        if (parts.size() >= 4 && parts[0] == "Crash") {
            result.reason = parts[1];
            result.crashedThread = std::atoi(parts[3].c_str());
        }
        if (parts.size() >= 4 && parts[0] == std::to_string(result.crashedThread)) {
            result.stack.push_back(parts[3]);
        }
    }
    return result;
}

std::string OrdinaryUser() {
    return std::to_string(geteuid() == 0 ? 65534 : geteuid());
}

}  // namespace test
