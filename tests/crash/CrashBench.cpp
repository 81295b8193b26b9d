#include "tests/crash/CrashBench.h"

#include <TestPlaces.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/RemoveFolder.h"

namespace test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> Split(const std::string& line, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(line);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

std::vector<fs::path> FilesIn(const fs::path& folder, const char* extension) {
    std::vector<fs::path> files;
    if (!fs::exists(folder)) return files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == extension) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
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

bool ReadDump::Has(const std::string& function) const {
    return std::any_of(stack.begin(), stack.end(),
                       [&](const std::string& frame) { return frame.find(function) != std::string::npos; });
}

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

CrashBench::CrashBench() {
    char name[] = "/tmp/zbase-crash-XXXXXX";
    mFolder = mkdtemp(name);
    mDumps = mFolder / "dumps";
    mReceived = mFolder / "received";
    fs::create_directory(mReceived);
}

CrashBench::~CrashBench() {
    mpServer.reset();
    test::RemoveFolder(mFolder);
}

void CrashBench::StartServer(const std::string& certificate) {
    std::vector<std::string> command = {ZBASE_CRASH_RECEIVER, mReceived, "0"};
    if (!certificate.empty()) command.insert(command.end(), {certificate, certificate + ".key"});
    mpServer = std::make_unique<BackgroundChild>(command);
    mServer = mpServer->ReadLine();
}

void CrashBench::Configure(const std::string& moreSettings, const std::string& crashKeys) {
    WriteConfig("[Config]\nServerURL=" + mServer + "\nServerProdURL=" + mServer +
                "\ndump_path=" + mDumps.string() + "\n" + moreSettings + "[CrashKeys]\n" + crashKeys);
}

void CrashBench::WriteConfig(const std::string& content) const {
    std::ofstream(Config(), std::ios::binary) << content;
}

ChildResult CrashBench::Crash(const std::vector<std::string>& arguments,
                              const std::vector<std::string>& environment, const std::string& program) const {
    std::vector<std::string> command = {ChildProgram(program)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = environment;
    for (const std::string& variable : Environment()) {
        const std::string name = variable.substr(0, variable.find('='));
        const bool isGiven =
            std::any_of(environment.begin(), environment.end(),
                        [&](const std::string& given) { return given.substr(0, given.find('=')) == name; });
        if (!isGiven) variables.push_back(variable);
    }
    return RunChild(command, variables);
}

std::unique_ptr<BackgroundChild> CrashBench::CrashInBackground(const std::vector<std::string>& arguments,
                                                               const std::string& program) const {
    std::vector<std::string> command = {"/usr/bin/env"};
    for (const std::string& variable : Environment()) command.push_back(variable);
    command.push_back(ChildProgram(program));
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<BackgroundChild>(command);
}

std::vector<std::string> CrashBench::Environment() const {
    return {"ZENT_CRASH_CONFIG_FILE=" + Config(), "LC_ALL=C.UTF-8", "ASAN_OPTIONS=detect_leaks=0"};
}

std::vector<fs::path> CrashBench::LeftDumps() const {
    return FilesIn(mDumps, ".dmp");
}

std::vector<fs::path> CrashBench::ReceivedDumps() const {
    return FilesIn(mReceived, ".dmp");
}

CrashKeys CrashBench::ReceivedKeys(int number) const {
    CrashKeys keys;
    std::ifstream file(mReceived / (std::to_string(number) + ".keys"));
    for (std::string line; std::getline(file, line);) {
        keys[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    }
    return keys;
}

}  // namespace test
