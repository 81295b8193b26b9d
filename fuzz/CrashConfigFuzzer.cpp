// The input is a file "crash_report.ini", which is read line by line and as a file, in UTF-8 or in ASCII, and
// compared with a reader that splits it first and knows nothing of the settings but their bounds.
//
// For: Base/crash/CrashConfig.cpp

#include <Base/crash/CrashConfig.h>

#include <unistd.h>

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "tests/support/SlowUnicode.h"

namespace {

using test::Units;
using ZBase::ECrashConfigLine;
using Table = std::map<Units, Units>;

std::optional<Units> SlowDecoded(const std::string& line) {
    Units text;
    for (std::size_t i = 0; i != line.size();) {
        wchar_t character = 0;
        std::mbstate_t state{};
        const std::size_t taken = std::mbrtowc(&character, line.data() + i, line.size() - i, &state);
        if (taken > line.size() || character > 0x10FFFF) return std::nullopt;  // UTF-16 lacks some
        text += test::SlowUtf16(static_cast<unsigned long>(character));
        i += taken == 0 ? 1 : taken;
    }
    return text;
}

Units Wide(const std::string& text) {
    return Units(text.begin(), text.end());
}

struct Reading {
    Table settings;
    Table keys;
    std::vector<ECrashConfigLine> lines;
};

Reading SlowlyRead(const std::vector<std::string>& lines) {
    Reading reading;
    std::string section;
    for (const std::string& line : lines) {
        const auto add = [&](ECrashConfigLine meaning) { reading.lines.push_back(meaning); };
        const std::optional<Units> text = SlowDecoded(line);
        if (line.empty()) {
            add(ECrashConfigLine::eEmpty);
        } else if (line.front() == '#') {
            add(ECrashConfigLine::eComment);
        } else if (!text) {
            add(ECrashConfigLine::eBadText);
        } else if (line == "[Config]" || line == "[CrashKeys]") {
            section = line;
            add(line == "[Config]" ? ECrashConfigLine::eConfigHeader : ECrashConfigLine::eCrashKeysHeader);
        } else if (line.find('=') == std::string::npos) {
            add(ECrashConfigLine::eUnknown);
        } else if (section.empty()) {
            add(ECrashConfigLine::eNoSection);
        } else {
            const std::size_t equals = text->find('=');
            (section == "[Config]" ? reading.settings : reading.keys)[text->substr(0, equals)] =
                text->substr(equals + 1);
            add(section == "[Config]" ? ECrashConfigLine::eSetting : ECrashConfigLine::eCrashKey);
        }
    }
    return reading;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        std::string line = text.substr(at, end == std::string::npos ? end : end - at);
        if (end != std::string::npos && !line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

Table Plain(const ZBase::CrashConfigTable& table) {
    Table plain;
    for (const auto& [key, value] : table)
        plain[Units(key.begin(), key.end())] = Units(value.begin(), value.end());
    return plain;
}

ZBase::WideString Key(const std::string& text) {
    return ZBase::WideString(text.begin(), text.end());
}

void CheckJudgement(const Reading& read, const ZBase::CrashConfigTable& settings) {
    const auto has = [&](const char* key) { return read.settings.count(Wide(key)) != 0; };
    const bool isOff = has("enable") && read.settings.at(Wide("enable")) != Wide("true") &&
                       read.settings.at(Wide("enable")) != Wide("TRUE");
    const ZBase::ECrashSettings expected = isOff                   ? ZBase::ECrashSettings::eDisabled
                                           : !has("ServerURL")     ? ZBase::ECrashSettings::eNoServerURL
                                           : !has("ServerProdURL") ? ZBase::ECrashSettings::eNoServerProdURL
                                                                   : ZBase::ECrashSettings::eComplete;
    fuzz::Check(ZBase::JudgeCrashSettings(settings) == expected, "JudgeCrashSettings");
    for (const auto& [key, value] : settings)
        fuzz::Check(ZBase::IsCrashSettingTrue(value) == (value == Key("true") || value == Key("TRUE")),
                    "IsCrashSettingTrue");
}

// Each number of the file, by the C library's parser.
void CheckNumbers(const ZBase::CrashConfigTable& settings) {
    for (const auto& [key, value] : settings) {
        const ZBase::CrashNumber* const number = ZBase::FindCrashNumber(key);
        if (number == nullptr) {
            fuzz::Check(ZBase::CrashNumberOf(settings, key) == 0, "a number without a name");
            continue;
        }
        const std::string digits(value.begin(), value.end());
        const bool areDigits = !digits.empty() && value.find_first_not_of(Key("0123456789")) == value.npos;
        const unsigned long long parsed = areDigits ? std::strtoull(digits.c_str(), nullptr, 10) : 0;
        const bool isGood = areDigits && parsed >= number->least && parsed <= number->most;
        unsigned int read = 0;
        fuzz::Check(number->Read(value, read) == isGood && read == (isGood ? parsed : number->usual) &&
                        ZBase::CrashNumberOf(settings, key) == read,
                    "a number of the settings");
    }
    const ZBase::CrashNumber* const seconds = ZBase::FindCrashNumber(Key("dump_seconds"));
    fuzz::Check(seconds != nullptr && ZBase::CrashNumberOf({}, Key("dump_seconds")) == seconds->usual &&
                    ZBase::CrashNumberOf({}, Key("unknown")) == 0,
                "a number that is absent");
}

const char* FilePath() {
    static char sPath[] = "/tmp/zbase-fuzz-XXXXXX";
    static const bool sIsMade = [] {
        close(mkstemp(sPath));
        return std::atexit([] { unlink(sPath); }) == 0;
    }();
    return sIsMade ? sPath : nullptr;
}

// Which file it is depends on two variables and on whether a file is there.
void CheckPlace() {
    unsetenv("ZENT_HOME_PATH");
    setenv("ZENT_CRASH_CONFIG_FILE", "/elsewhere.ini", 1);
    fuzz::Check(std::string(ZBase::FindCrashConfig().c_str()) == "/elsewhere.ini", "the named file");
    setenv("ZENT_CRASH_CONFIG_FILE", "", 1);
    fuzz::Check(std::string(ZBase::FindCrashConfig().c_str()) == "crash_report.ini", "no named file");
    unsetenv("ZENT_CRASH_CONFIG_FILE");
    setenv("ZENT_HOME_PATH", "/no/such/place", 1);
    fuzz::Check(std::string(ZBase::FindCrashConfig().c_str()) == "crash_report.ini", "the current directory");
}

void CheckFile(const std::string& text) {
    std::ofstream(FilePath(), std::ios::binary | std::ios::trunc)
        .write(text.data(), static_cast<std::streamsize>(text.size()));
    const Reading expected = SlowlyRead(Lines(text));
    ZBase::CrashConfigTable settings;
    ZBase::CrashConfigTable keys;
    fuzz::Check(ZBase::ReadCrashConfig(FilePath(), settings, keys), "the file can't be read");
    fuzz::Check(Plain(settings) == expected.settings && Plain(keys) == expected.keys, "tables of the file");

    ZBase::CrashConfigReader reader;
    std::vector<ECrashConfigLine> lines;
    ZBase::WideString key;
    ZBase::WideString value;
    for (const std::string& line : Lines(text)) lines.push_back(reader.Read(line, key, value));
    fuzz::Check(lines == expected.lines, "meaning of a line");
    CheckJudgement(expected, settings);
    CheckNumbers(settings);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::setlocale(LC_CTYPE, size % 4 == 3 ? "C" : "C.UTF-8");
    CheckFile(text);
    ZBase::CrashConfigTable none;
    fuzz::Check(
        !ZBase::ReadCrashConfig(nullptr, none, none) && !ZBase::ReadCrashConfig("/no/such/place", none, none),
        "a file that is not there");
    CheckPlace();
    return 0;
}
