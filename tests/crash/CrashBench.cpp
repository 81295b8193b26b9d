#include "tests/crash/CrashBench.h"

#include <TestPlaces.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "tests/support/RemoveFolder.h"

namespace test {

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> FilesIn(const fs::path& folder, const char* extension) {
    std::vector<fs::path> files;
    if (!fs::exists(folder)) return files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == extension) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

bool ReadDump::Has(const std::string& function) const {
    return std::any_of(stack.begin(), stack.end(),
                       [&](const std::string& frame) { return frame.find(function) != std::string::npos; });
}

CrashBench::CrashBench() {
    std::random_device random;
    do mFolder = fs::temp_directory_path() / ("zbase-crash-" + std::to_string(random()));
    while (!fs::create_directory(mFolder));
    fs::permissions(mFolder, fs::perms::owner_all);
    mDumps = mFolder / "dumps";
    mReceived = mFolder / "received";
    fs::create_directory(mReceived);
}

CrashBench::~CrashBench() {
    mpServer.reset();
    test::RemoveFolder(mFolder);
}

void CrashBench::StartServer(const std::string& certificate) {
    std::vector<std::string> command = {ZBASE_CRASH_RECEIVER, mReceived.string(), "0"};
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
    std::vector<std::string> command = {ChildProgram(program)};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<BackgroundChild>(command, Environment());
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
