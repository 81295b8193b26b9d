#include "CrashCommands.h"
#include "CrashSettings.h"
#include "tools/system/Files.h"
#include "tools/system/Programs.h"
#include "tools/zbase/dumps/CrashAttachments.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/CrashHandler.h>
#include <Base/crash/detail/CrashContract.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string_view>

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;
using ZBase::ECrashConfigLine;
using ZBase::WideString;
using ZBase::detail::CrashSetting;
using ZBase::detail::ECrashSetting;
using ZBase::detail::FindCrashSetting;
using ZBase::detail::TextSetting;

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

std::string MeaningOfNumber(const CrashSetting& row, const WideString& value) {
    const ZBase::CrashNumber number{row.key, row.meaning, row.least, row.most, row.usualNumber};
    unsigned int counts = 0;
    if (number.Read(value, counts)) return row.meaning;
    return std::string(row.meaning) + " (no number from " + std::to_string(row.least) + " to " +
           std::to_string(row.most) + ": " + std::to_string(counts) + " counts)";
}

std::string MeaningOfChoice(const CrashSetting& row, const WideString& value) {
    const bool isTaken = ZBase::detail::IsCrashChoiceTaken(row, value);
    const std::string meaning = isTaken ? row.meaning : row.otherwise;
    if (row.yes != nullptr) return isTaken ? meaning : meaning + " (only \"" + row.yes + "\" has them be)";
    const bool isClear = isTaken || value == "false"_w || value == "FALSE"_w;
    return isClear ? meaning : meaning + " (only \"true\" and \"TRUE\" count as true)";
}

// The meaning of a setting, or why it has none.
std::string MeaningOf(const WideString& key, const WideString& value) {
    const CrashSetting* const row = FindCrashSetting(key);
    if (row == nullptr) {
        const bool hasBlanks = FindCrashSetting(Wide(Trimmed(Narrow(key.c_str())))) != nullptr;
        return std::string("counts for nothing: no setting has this name") +
               (hasBlanks ? ", blanks belong to it" : "");
    }
    if (row->kind == ECrashSetting::eChoice) return MeaningOfChoice(*row, value);
    return row->kind == ECrashSetting::eNumber ? MeaningOfNumber(*row, value) : row->meaning;
}

std::string MeaningOfCrashKey(const std::string& key) {
    const bool isName = !key.empty() && std::all_of(key.begin(), key.end(), [](char letter) {
        return letter >= ' ' && letter <= '~' && letter != '"';
    });
    if (!isName)
        return "sent with each report; what is not printable ASCII, or a quote, as \"%\" and its number";
    if (key == ZBase::detail::kProductionKey)
        return "sent with each report; chooses no server, only a call does";
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
            return MeaningOf(key, value);
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

// Why no report can arrive at an address; empty if one may.
std::string WhyNoReport(const std::string& url) {
    const std::string scheme = url.substr(0, url.find("://"));
    const auto is = [&](std::string_view name) {
        return std::equal(scheme.begin(), scheme.end(), name.begin(), name.end(), [](char letter, char low) {
            return (letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter) == low;
        });
    };
    if (url.empty()) return "is empty";
    if (url.find_first_of(" \t") != std::string::npos) return "has a blank in it";
    if (Shown(url) != url) return "has characters in it that no address has";
    if (scheme == url || !(is("http") || is("https"))) return "is no http:// or https:// address";
    const std::size_t host = scheme.size() + 3;
    return host == url.size() || url[host] == '/' || url[host] == ':' ? "names no server" : "";
}

// The obstacles between the reports and one or both servers, a line each.
std::string LostReports(const CrashSettings& config) {
    const auto line = [](const char* key, const WideString& address) {
        const std::string why = WhyNoReport(Narrow(address.c_str()));
        return why.empty() ? "" : std::string("No report would arrive: ") + key + " " + why + ".\n";
    };
    return line("ServerURL", TextSetting<"ServerURL">(config.settings)) +
           line("ServerProdURL", TextSetting<"ServerProdURL">(config.settings));
}

// The files that could not be attached now, a line each.
std::string LostAttachments(const CrashSettings& config) {
    std::string lines;
    for (const CrashAttachment& attachment : AttachmentsIn(config.settings)) {
        std::string why = attachment.obstacle;
        std::error_code none;
        if (why.empty() && !fs::is_regular_file(attachment.file, none)) {
            why = fs::exists(attachment.file, none) ? " is no regular file" : " is not there";
            why = attachment.file.string() + why;
        } else if (why.empty() && !CanRead(attachment.file.string())) {
            why = attachment.file.string() + " can't be read by this user";
        }
        if (!why.empty()) lines += "No file would go along as " + attachment.name + ": " + Shown(why) + ".\n";
    }
    return lines;
}

bool HaveSender() {
    const fs::path library = FileOfCode(reinterpret_cast<const void*>(&ZBase::InstallCrashHandler));
    return !library.empty() && !ProgramIn(library.parent_path().string(), "zbase-crash-sender").empty();
}

std::string WhyThisFile(const std::string& file) {
    if (!file.empty()) return "";
    if (std::getenv("ZENT_CRASH_CONFIG_FILE") != nullptr) return ", named by ZENT_CRASH_CONFIG_FILE";
    if (ZBase::FindCrashConfig().c_str() != std::string("crash_report.ini"))
        return ", found by ZENT_HOME_PATH";
    return ", in the current directory";
}

// Without a file it checks the configuration that the library would find.
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

void AddCrashCheckCommand(Command& crash) {
    Command check = crash.AddCommand("check", "Tell what each line of the configuration means");
    const auto file = std::make_shared<std::string>();
    check.AddOption("FILE", *file, "A configuration, in place of the one that would be used");
    check.Runs([file] { return Check(*file); });
}
