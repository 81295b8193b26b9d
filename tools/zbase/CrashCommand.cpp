#include "Commands.h"
#include "Console.h"
#include "CrashAttachments.h"
#include "CrashDelivery.h"
#include "CrashDumps.h"
#include "LocalReceiver.h"

#include <Base/crash/detail/Attachments.h>

#include <dlfcn.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>

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

WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), true).c_str();
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

bool IsSetting(const std::string& key) {
    static constexpr std::array kTexts = {"enable",    "ServerURL",   "ServerProdURL",
                                          "dump_path", "native_dump", "keep_dump_file",
                                          "send_left", "stacks_on",   "chain"};
    return std::find(kTexts.begin(), kTexts.end(), key) != kTexts.end() ||
           ZBase::FindCrashNumber(Wide(key)) != nullptr || ZBase::detail::IsAttachment(Wide(key));
}

std::string MeaningOfNumber(const ZBase::CrashNumber& number, const WideString& value) {
    unsigned int counts = 0;
    const std::string range = std::to_string(number.least) + " to " + std::to_string(number.most);
    if (number.Read(value, counts)) return number.meaning;
    return std::string(number.meaning) + " (no number from " + range + ": " + std::to_string(counts) +
           " counts)";
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
    if (key == "send_left")
        return (isTrue ? "dumps that were left are sent at the next start"
                       : "left dumps stay until sent by hand") +
               doubt;
    if (const ZBase::CrashNumber* number = ZBase::FindCrashNumber(Wide(key)))
        return MeaningOfNumber(*number, value);
    if (key == "stacks_on")
        return "the signal that has all stacks written: SIGQUIT, SIGHUP, SIGUSR1 or SIGUSR2; none else";
    if (ZBase::detail::IsAttachment(Wide(key))) return "a file whose end goes with each report";
    return "counts for nothing: no setting has this name" +
           (IsSetting(Trimmed(key)) ? ", blanks belong to it" : std::string());
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
            return "counts for nothing: neither a header, which is a whole line, nor a key and a value";
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
        std::string shown = Shown(line.substr(0, 48));
        if (shown.size() < 48) shown.resize(48, ' ');
        Print("  " + std::to_string(++number) + "\t" + shown + "  " + meaning + "\n");
    }
}

constexpr char kNoCrashReporting[] =
    "the library was built without crash reporting (ZBASE_CRASH_REPORTING=OFF)";

void NeedCrashReporting() {
    if (!ZBASE_HAS_CRASH_REPORTING) throw Failure(kNoCrashReporting);
}

// Why no dump can be written to what stands there; empty if one can.
std::string WhyNotForDumps(const fs::path& dumps) {
    std::error_code none;
    if (!fs::is_directory(dumps, none)) return "the dump path " + dumps.string() + " is no directory";
    if (access(dumps.c_str(), W_OK | X_OK) == 0) return "";
    return "nothing can be written to the dump path " + dumps.string() +
           (errno == EROFS ? ": its file system is read-only" : "");
}

// Why no report can ever arrive at an address; empty if one may.
std::string WhyNoReport(const std::string& url) {
    const std::string scheme = url.substr(0, url.find("://"));
    const auto is = [&](const char* name) { return strcasecmp(scheme.c_str(), name) == 0; };
    if (url.empty()) return "is empty";
    if (url.find_first_of(" \t") != std::string::npos) return "has a blank in it";
    if (Shown(url) != url) return "has characters in it that no address has";
    if (scheme == url || !(is("http") || is("https"))) return "is no http:// or https:// address";
    const std::size_t host = scheme.size() + 3;
    return host == url.size() || url[host] == '/' || url[host] == ':' ? "names no server" : "";
}

// What would keep the reports from both or one of the servers, a line each.
std::string LostReports(const Config& config) {
    std::string lines;
    for (const auto* key : {"ServerURL"_w, "ServerProdURL"_w}) {
        const std::string why = WhyNoReport(Setting(config, key, ""));
        if (!why.empty()) lines += "No report would arrive: " + Narrow(key) + " " + why + ".\n";
    }
    return lines;
}

// Which files would not go with reports as they stand now, a line each.
std::string LostAttachments(const Config& config) {
    std::string lines;
    for (const CrashAttachment& attachment : AttachmentsIn(config.settings)) {
        std::string why = attachment.obstacle;
        std::error_code none;
        if (why.empty() && !fs::is_regular_file(attachment.file, none)) {
            why = fs::exists(attachment.file, none) ? " is no regular file" : " is not there";
            why = attachment.file.string() + why;
        } else if (why.empty() && access(attachment.file.c_str(), R_OK) != 0) {
            why = attachment.file.string() + " can't be read by this user";
        }
        if (!why.empty()) lines += "No file would go along as " + attachment.name + ": " + Shown(why) + ".\n";
    }
    return lines;
}

// What would stop the installation, or every dump; empty if nothing would.
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
    if (fs::exists(dumps, none)) return WhyNotForDumps(dumps);
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

bool KeepsDumps(const Config& config) {
    return ZBase::IsCrashSettingTrue(Wide(Setting(config, "keep_dump_file"_w, "")));
}

// Sends a dump, and tells what became of it. False if it stays and should not.
bool SendDump(CrashDelivery& delivery, const Config& config, const fs::path& dump) {
    WideString code;
    std::string result;
    bool isWell = true;
    switch (delivery.Deliver(dump.filename().string(), code)) {
        case EDelivery::eSent:
            result = "sent, report " + Narrow(code.c_str());
            break;
        case EDelivery::eSentAndKept:
            result = "sent, report " + Narrow(code.c_str()) +
                     (KeepsDumps(config) ? ", stays by keep_dump_file" : ", but can't be deleted");
            break;
        case EDelivery::eSentBefore:
            result = "was sent before, stays";
            break;
        case EDelivery::eInUse:
            result = "is being written or sent by another process";
            break;
        case EDelivery::eNoDump:
            result = "no whole dump, stays";
            isWell = false;
            break;
        case EDelivery::eNotSent:
            result = "not sent, stays";
            isWell = false;
            break;
        case EDelivery::eRejected:
            result = "rejected, stays";
            isWell = false;
            break;
        case EDelivery::eThrottled:
            result = "not sent, stays: the reports of this day are used up (max_reports_per_day)";
            isWell = false;
            break;
    }
    Print(Shown(dump.string() + ": " + result) + "\n");
    return isWell;
}

// The places where a dump of this process may lie, by the GUIDs of those that do.
std::set<std::string> DumpNames(const Config& config) {
    std::set<std::string> names;
    for (const fs::path& place : {DumpDirectory(config), fs::temp_directory_path()}) {
        for (const fs::path& dump : DumpsIn(place)) {
            const std::string name = dump.filename().string();
            names.insert((place / name.substr(0, name.find('.'))).string());
        }
    }
    return names;
}

// Dumps a process by the configuration that is in force, and tells whether the report arrived.
int TestConfiguration() {
    const Config config = ReadConfig("");
    const std::string obstacle = Obstacle(config);
    if (!obstacle.empty()) throw Failure(config.path + ": " + obstacle);
    const std::set<std::string> before = DumpNames(config);
    if (!DumpInChild()) throw Failure("no dump could be written to " + DumpDirectory(config).string());
    const std::string server = Shown(Setting(config, "ServerURL"_w, ""));
    for (const std::string& dump : DumpNames(config)) {
        const fs::path path = dump + ".dmp";
        const ZBase::CrashStore store(path.parent_path().string(), config.settings);
        if (before.contains(dump) || store.IsSent(path.filename().string())) continue;
        Print("The dump was written: " + Shown(dump) + ".dmp\nThe report did not arrive at " + server +
              ".\n");
        return 1;
    }
    Print("A dump was written, and its report arrived at " + server + ".\n");
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
    for (std::string line; std::getline(keys, line);) Print("  " + Shown(line) + "\n");
    return status;
}

}  // namespace

int RunCrashCheck(const std::string& file) {
    const Config config = ReadConfig(file);
    Print(Styled(Shown(config.path), "1") + WhyThisFile(file) + "\n");
    PrintLines(config.path);
    if (ZBASE_HAS_CRASH_REPORTING && !HaveSender())
        Print("zbase-crash-sender does not stand beside the library: no report would be sent.\n");
    const std::string obstacle = Obstacle(config);
    if (!obstacle.empty()) {
        Print(Styled("No crash handler: ", "31") + Shown(obstacle) + ".\n");
        return 1;
    }
    Print("The crash handler would be installed; dumps go to " + Shown(DumpDirectory(config).string()) +
          ".\n");
    Print(LostAttachments(config));
    const std::string lost = LostReports(config);
    Print(lost);
    return lost.empty() ? 0 : 1;
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
    CrashDelivery delivery(place, config.settings, config.crashKeys);
    bool allSent = true;
    for (const fs::path& dump : DumpsIn(place)) allSent = SendDump(delivery, config, dump) && allSent;
    delivery.CleanUp();
    return allSent ? 0 : 1;
}
