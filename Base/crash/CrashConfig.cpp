#include <Base/crash/CrashConfig.h>
#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/processes/Environment.h>
#include <Base/platform/os/text/MultibyteText.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace ZBase {

namespace {

#if defined(_WIN32)
constexpr char kFileInHome[] = "\\crash_report.ini";
#else
constexpr char kFileInHome[] = "/crash_report.ini";
#endif
constexpr char kFile[] = "crash_report.ini";

constexpr bool IsNumber(const detail::CrashSetting& setting) {
    return setting.kind == detail::ECrashSetting::eNumber;
}

// The numbers in the table of settings.
constexpr auto kNumbers = [] {
    std::array<CrashNumber,
               std::count_if(std::begin(detail::kCrashSettings), std::end(detail::kCrashSettings), IsNumber)>
        numbers{};
    auto* place = numbers.data();
    for (const detail::CrashSetting& row : detail::kCrashSettings) {
        if (IsNumber(row)) *place++ = {row.key, row.meaning, row.least, row.most, row.usualNumber};
    }
    return numbers;
}();

// Text in the encoding of the locale, zeros included; false if it is invalid. Between zeros it is decoded as
// a whole: in some encodings a character depends on the next.
bool Decode(const std::string& line, WideString& text) {
    for (std::size_t start = 0;;) {
        const char* part = line.c_str() + start;
        const std::size_t length = std::strlen(part);
        const std::size_t units = os::MultibyteToWide(nullptr, 0, part, length);
        if (units == os::kBadText) return false;
        const std::size_t before = text.size();
        text.resize(before + units);
        os::MultibyteToWide(text.data() + before, units, part, length);
        start += length;
        if (start == line.size()) return true;
        text += static_cast<unsigned short>(0);
        ++start;
    }
}

// `present` is the path of an earlier installation: it is kept if neither variable names another.
std::string Locate(const std::string& present) {
    if (const char* file = os::GetNarrowEnvironment("ZENT_CRASH_CONFIG_FILE")) {
        return *file == 0 ? kFile : file;
    }
    std::string path = present;
    if (const char* home = os::GetNarrowEnvironment("ZENT_HOME_PATH")) {
        path = std::string(home) + kFileInHome;
        std::error_code ignored;
        if (!std::filesystem::exists(path, ignored)) path.clear();
    }
    return path.empty() ? kFile : path;
}

}  // namespace

ECrashConfigLine CrashConfigReader::Read(const std::string& line, WideString& key, WideString& value) {
    if (line.empty()) return ECrashConfigLine::eEmpty;
    if (line[0] == '#') return ECrashConfigLine::eComment;
    WideString text;
    if (!Decode(line, text)) return ECrashConfigLine::eBadText;
    if (text == "[Config]"_w) {
        mSection = ECrashConfigLine::eSetting;
        return ECrashConfigLine::eConfigHeader;
    }
    if (text == "[CrashKeys]"_w) {
        mSection = ECrashConfigLine::eCrashKey;
        return ECrashConfigLine::eCrashKeysHeader;
    }
    const std::size_t equals = text.find('=');
    if (equals == WideString::npos) return ECrashConfigLine::eUnknown;
    if (mSection != ECrashConfigLine::eNoSection) {
        key = text.substr(0, equals);
        value = text.substr(equals + 1);
    }
    return mSection;
}

ECrashSettings JudgeCrashSettings(const CrashConfigTable& settings) {
    if (!detail::ChoiceSetting<"enable">(settings)) return ECrashSettings::eDisabled;
    if (!detail::HasTextSetting<"ServerURL">(settings)) return ECrashSettings::eNoServerURL;
    if (!detail::HasTextSetting<"ServerProdURL">(settings)) return ECrashSettings::eNoServerProdURL;
    return ECrashSettings::eComplete;
}

bool IsCrashSettingTrue(const WideString& value) {
    return value == "true"_w || value == "TRUE"_w;
}

bool CrashNumber::Read(const WideString& value, unsigned int& number) const {
    number = usual;
    unsigned long long sum = 0;
    for (const unsigned short unit : value) {
        if (unit < '0' || unit > '9') return false;
        sum = std::min(sum * 10 + unit - '0', most + 1ULL);
    }
    if (value.empty() || sum < least || sum > most) return false;
    number = static_cast<unsigned int>(sum);
    return true;
}

const CrashNumber* FindCrashNumber(const WideString& key) {
    const auto found = std::find_if(kNumbers.begin(), kNumbers.end(),
                                    [&](const CrashNumber& number) { return key == number.key; });
    return found == kNumbers.end() ? nullptr : &*found;
}

unsigned int CrashNumberOf(const CrashConfigTable& settings, const WideString& key) {
    const CrashNumber* const number = FindCrashNumber(key);
    if (number == nullptr) return 0;
    unsigned int value = number->usual;
    const auto setting = settings.find(key);
    if (setting != settings.end()) number->Read(setting->second, value);
    return value;
}

ReturnString FindCrashConfig() {
    return ReturnString(Locate(gCrash.tables->configPath).c_str());
}

bool ReadCrashConfig(const char* path, CrashConfigTable& settings, CrashConfigTable& crashKeys) {
    if (path == nullptr) return false;
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    CrashConfigReader reader;
    std::string line;
    WideString key;
    WideString value;
    while (std::getline(file, line)) {
        // A carriage return before the line feed is part of the line end.
        if (!file.eof() && line.ends_with('\r')) line.pop_back();
        const ECrashConfigLine meaning = reader.Read(line, key, value);
        if (meaning == ECrashConfigLine::eSetting) settings[key] = value;
        if (meaning == ECrashConfigLine::eCrashKey) crashKeys[key] = value;
    }
    return true;
}

}  // namespace ZBase
