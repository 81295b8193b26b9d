#include "CrashCommands.h"
#include "CrashSettings.h"
#include "tools/zbase/dumps/CrashAttachments.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/Attachments.h>

#include <dlfcn.h>
#include <strings.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;
using ZBase::ECrashConfigLine;
using ZBase::WideString;

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
std::string LostReports(const CrashSettings& config) {
    std::string lines;
    for (const auto* key : {"ServerURL"_w, "ServerProdURL"_w}) {
        const std::string why = WhyNoReport(config.Get(key, ""));
        if (!why.empty()) lines += "No report would arrive: " + Narrow(key) + " " + why + ".\n";
    }
    return lines;
}

// Which files would not go with reports as they stand now, a line each.
std::string LostAttachments(const CrashSettings& config) {
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

// Without a file, of the configuration that the library would find.
int Check(const std::string& file) {
    const CrashSettings config = ReadCrashSettings(file);
    Print(Styled(Shown(config.path), "1") + WhyThisFile(file) + "\n");
    PrintLines(config.path);
    if (ZBASE_HAS_CRASH_REPORTING && !HaveSender())
        Print("zbase-crash-sender does not stand beside the library: no report would be sent.\n");
    const std::string obstacle = CrashObstacle(config);
    if (!obstacle.empty()) {
        Print(Styled("No crash handler: ", "31") + Shown(obstacle) + ".\n");
        return 1;
    }
    Print("The crash handler would be installed; dumps go to " + Shown(config.DumpDirectory().string()) +
          ".\n");
    Print(LostAttachments(config));
    const std::string lost = LostReports(config);
    Print(lost);
    return lost.empty() ? 0 : 1;
}

}  // namespace

void AddCrashCheckCommand(CLI::App& crash, int& status) {
    CLI::App* check = crash.add_subcommand("check", "Tell what each line of the configuration means");
    const auto file = std::make_shared<std::string>();
    check->add_option("FILE", *file, "A configuration, in place of the one that would be used");
    check->callback([file, &status] { status = Check(*file); });
}
