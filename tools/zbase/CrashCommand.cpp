#include "Commands.h"
#include "Console.h"
#include "CrashDumps.h"
#include "LocalReceiver.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;
using ZBase::CrashConfigTable;
using ZBase::ECrashConfigLine;
using ZBase::ECrashSettings;
using ZBase::WideString;

struct Config {
    std::string path;
    CrashConfigTable settings;
    CrashConfigTable crashKeys;
};

Config ReadConfig(const std::string& file) {
    Config config;
    config.path = file.empty() ? ZBase::FindCrashConfig().c_str() : file;
    if (!ZBase::ReadCrashConfig(config.path.c_str(), config.settings, config.crashKeys)) {
        throw FileFailure(config.path, errno);
    }
    return config;
}

std::string Setting(const Config& config, const unsigned short* key, const char* absent) {
    const auto found = config.settings.find(key);
    return found == config.settings.end() ? absent : Narrow(found->second.c_str());
}

fs::path DumpDirectory(const Config& config) {
    return Setting(config, "dump_path"_w, "crash_dumps");
}

// What a setting means, or why it means nothing.
std::string MeaningOf(const std::string& key, const WideString& value) {
    const bool isTrue = ZBase::IsCrashSettingTrue(value);
    const bool isFalse = value == "false"_w || value == "FALSE"_w;
    const std::string doubt = isTrue || isFalse ? "" : " (only \"true\" and \"TRUE\" count as true)";
    if (key == "enable") return (isTrue ? "crash reporting is on" : "crash reporting is off") + doubt;
    if (key == "ServerURL") return "where reports go";
    if (key == "ServerProdURL") return "where reports go once the crash key customer_dsi is set";
    if (key == "native_dump")
        return (isTrue ? "the system's own handling follows" : "the process ends") + doubt;
    if (key == "keep_dump_file") return (isTrue ? "dumps stay" : "dumps go once they are sent") + doubt;
    if (key == "dump_path") return "where dumps are written";
    if (key == "chain")
        return value == "first"_w
                   ? "handlers that were there before are asked first"
                   : "handlers that were there before are not asked (only \"first\" has them be)";
    if (key == "dump_seconds") return "the most seconds for writing a dump, 1 to 60; 10 for anything else";
    if (key == "stacks_on")
        return "the signal that has all stacks written: SIGQUIT, SIGHUP, SIGUSR1 or SIGUSR2; none else";
    return "counts for nothing: no setting has this name";
}

std::string MeaningOfCrashKey(const std::string& key) {
    const bool isName = !key.empty() && std::all_of(key.begin(), key.end(), [](char letter) {
        return letter >= ' ' && letter <= '~' && letter != '"';
    });
    if (!isName)
        return "sent with each report; what is not printable ASCII, or a quote, as \"%\" and its number";
    if (key == "customer_dsi") return "sent with each report; chooses no server, only a call does";
    return "sent with each report";
}

std::string Describe(ECrashConfigLine meaning, const WideString& key, const WideString& value) {
    switch (meaning) {
        case ECrashConfigLine::eComment:
            return "comment";
        case ECrashConfigLine::eEmpty:
            return "";
        case ECrashConfigLine::eConfigHeader:
            return "settings follow";
        case ECrashConfigLine::eCrashKeysHeader:
            return "crash keys follow";
        case ECrashConfigLine::eSetting:
            return MeaningOf(Narrow(key.c_str()), value);
        case ECrashConfigLine::eCrashKey:
            return MeaningOfCrashKey(Narrow(key.c_str()));
        case ECrashConfigLine::eNoSection:
            return "counts for nothing: no section has begun";
        case ECrashConfigLine::eUnknown:
            return "counts for nothing: neither a header nor a key and a value";
        case ECrashConfigLine::eBadText:
            return "counts for nothing: no text in the encoding of the locale";
    }
    return "";
}

void PrintLines(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    ZBase::CrashConfigReader reader;
    WideString key;
    WideString value;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        if (!file.eof() && line.ends_with('\r')) line.pop_back();
        const std::string meaning = Describe(reader.Read(line, key, value), key, value);
        std::string shown = line.substr(0, 48);
        shown.resize(48, ' ');
        Print("  " + std::to_string(++number) + "\t" + shown + "  " + meaning + "\n");
    }
}

constexpr char kNoCrashReporting[] =
    "the library was built without crash reporting (ZBASE_CRASH_REPORTING=OFF)";

void NeedCrashReporting() {
    if (!ZBASE_HAS_CRASH_REPORTING) throw Failure(kNoCrashReporting);
}

// What would stop the installation; empty if nothing would.
std::string Obstacle(const Config& config) {
    if (!ZBASE_HAS_CRASH_REPORTING) return kNoCrashReporting;
    switch (ZBase::JudgeCrashSettings(config.settings)) {
        case ECrashSettings::eDisabled:
            return "enable is not true";
        case ECrashSettings::eNoServerURL:
            return "ServerURL is missing";
        case ECrashSettings::eNoServerProdURL:
            return "ServerProdURL is missing";
        case ECrashSettings::eComplete:
            break;
    }
    const fs::path dumps = DumpDirectory(config);
    std::error_code none;
    if (dumps.empty()) return "dump_path is empty";
    if (fs::exists(dumps, none)) return "";
    const fs::path parent = fs::absolute(dumps, none).parent_path();
    if (!fs::is_directory(parent, none))
        return "there is no directory " + parent.string() + " to make the dump path in";
    return access(parent.c_str(), W_OK) == 0 ? "" : "the dump path can't be made in " + parent.string();
}

bool HaveSender() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&ZBase::InstallCrashHandler), &library) == 0) return false;
    return access((fs::path(library.dli_fname).parent_path() / "zbase-crash-sender").c_str(), X_OK) == 0;
}

std::string WhyThisFile(const std::string& file) {
    if (!file.empty()) return "";
    if (std::getenv("ZENT_CRASH_CONFIG_FILE") != nullptr) return ", named by ZENT_CRASH_CONFIG_FILE";
    if (ZBase::FindCrashConfig().c_str() != std::string("crash_report.ini"))
        return ", found by ZENT_HOME_PATH";
    return ", in the current directory";
}

// Runs in a process of its own, so that this one keeps its handlers.
bool DumpInChild() {
    const pid_t child = fork();
    if (child == 0) {
        ZBase::SetCrashAttr("zbase_crash_test", "1", true);
        _exit(ZBase::InstallCrashHandler() && ZBase::CreateDump() ? 0 : 1);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && status == 0;
}

WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), true).c_str();
}

bool KeepsDumps(const Config& config) {
    return ZBase::IsCrashSettingTrue(Wide(Setting(config, "keep_dump_file"_w, "")));
}

// Sends a dump as the process that left it would have done, now that its server answers.
bool SendDump(const Config& config, const fs::path& dump) {
    DumpedReport report = ReportOfDump(dump);
    if (!report.isDump) {
        Print(dump.string() + ": no whole dump, stays\n");
        return false;
    }
    if (!report.hasKeys) {
        for (const auto& [name, value] : config.crashKeys)
            report.keys[Narrow(name.c_str())] = Narrow(value.c_str());
    }
    ZBase::CrashReportSender::Fields parameters;
    for (const auto& [name, value] : report.keys) parameters[Wide(name)] = Wide(value);
    const std::string server =
        Setting(config, report.isForProduction ? "ServerProdURL"_w : "ServerURL"_w, "");
    WideString code;
    const ZBase::ReportResult result =
        ZBase::CrashReportSender(WideString())
            .SendCrashReport(Wide(server), parameters, {{"upload_file_minidump"_w, Wide(dump.string())}},
                             &code);
    static constexpr std::array kResults = {"not sent, stays", "rejected, stays", "sent", "not sent, stays"};
    Print(dump.string() + ": " + kResults[result]);
    if (result == ZBase::RESULT_SUCCEEDED) {
        Print(", report " + Narrow(code.c_str()));
        std::error_code failed;
        if (KeepsDumps(config)) {
            Print(", stays by keep_dump_file");
        } else if (!fs::remove(dump, failed)) {
            Print(", but can't be deleted");
        }
    }
    Print("\n");
    return result == ZBase::RESULT_SUCCEEDED;
}

// Dumps a process by the configuration that is in force, and tells whether the report arrived.
int TestConfiguration() {
    const Config config = ReadConfig("");
    const std::string obstacle = Obstacle(config);
    if (!obstacle.empty()) throw Failure(config.path + ": " + obstacle);
    const fs::path directory = DumpDirectory(config);
    const std::vector<fs::path> before = DumpsIn(directory);
    if (!DumpInChild()) throw Failure("no dump could be written to " + directory.string());
    for (const fs::path& dump : DumpsIn(directory)) {
        if (std::find(before.begin(), before.end(), dump) != before.end()) continue;
        const bool isKept = KeepsDumps(config);
        Print("The dump was written: " + dump.string() +
              (isKept ? "; look at the server, keep_dump_file keeps it either way.\n"
                      : "\nThe report did not arrive at " + Setting(config, "ServerURL"_w, "") + ".\n"));
        return isKept ? 0 : 1;
    }
    Print("A dump was written, and its report arrived at " + Setting(config, "ServerURL"_w, "") + ".\n");
    return 0;
}

// The same with a server, a configuration and a place for dumps of its own.
int TestLocally() {
    const LocalReceiver receiver;
    const fs::path file = receiver.Directory() / "crash_report.ini";
    std::ofstream(file) << "[Config]\nenable=true\nServerURL=" << receiver.Address()
                        << "\nServerProdURL=" << receiver.Address()
                        << "\ndump_path=" << (receiver.Directory() / "crash_dumps").string()
                        << "\n[CrashKeys]\nproduct=zbase\n";
    if (setenv("ZENT_CRASH_CONFIG_FILE", file.c_str(), 1) != 0) throw FileFailure(file, errno);
    const int status = TestConfiguration();
    std::ifstream keys(receiver.Directory() / "1.keys");
    for (std::string line; std::getline(keys, line);) Print("  " + line + "\n");
    return status;
}

}  // namespace

int RunCrashCheck(const std::string& file) {
    const Config config = ReadConfig(file);
    Print(Styled(config.path, "1") + WhyThisFile(file) + "\n");
    PrintLines(config.path);
    if (ZBASE_HAS_CRASH_REPORTING && !HaveSender())
        Print("zbase-crash-sender does not stand beside the library: no report would be sent.\n");
    const std::string obstacle = Obstacle(config);
    if (obstacle.empty()) {
        Print("The crash handler would be installed; dumps go to " + DumpDirectory(config).string() + ".\n");
        return 0;
    }
    Print(Styled("No crash handler: ", "31") + obstacle + ".\n");
    return 1;
}

int RunCrashTest(bool isLocal) {
    NeedCrashReporting();
    return isLocal ? TestLocally() : TestConfiguration();
}

int RunCrashSend(const std::string& directory) {
    NeedCrashReporting();
    const Config config = ReadConfig("");
    const fs::path place = directory.empty() ? DumpDirectory(config) : fs::path(directory);
    std::error_code missing;
    if (!fs::is_directory(place, missing)) throw Failure(place.string() + ": not a directory");
    bool allSent = true;
    for (const fs::path& dump : DumpsIn(place)) allSent = SendDump(config, dump) && allSent;
    return allSent ? 0 : 1;
}
