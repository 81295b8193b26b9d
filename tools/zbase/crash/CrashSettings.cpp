#include "CrashSettings.h"
#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/CrashContract.h>

#include <cerrno>

namespace fs = std::filesystem;
using ZBase::ECrashSettings;

namespace {

constexpr char kNoCrashReporting[] =
    "the library was built without crash reporting (ZBASE_CRASH_REPORTING=OFF)";

// Why no dump can be written to this directory; empty if one can.
std::string WhyNotForDumps(const fs::path& dumps) {
    std::error_code none;
    if (!fs::is_directory(dumps, none)) return "the dump path " + dumps.string() + " is no directory";
    if (CanMakeFilesIn(dumps.string())) return "";
    return "nothing can be written to the dump path " + dumps.string() +
           (errno == EROFS ? ": its file system is read-only" : "");
}

}  // namespace

fs::path CrashSettings::DumpDirectory() const {
    return Narrow(ZBase::detail::TextSetting<"dump_path">(settings).c_str());
}

CrashSettings ReadCrashSettings(const std::string& file) {
    CrashSettings config;
    config.path = file.empty() ? ZBase::FindCrashConfig().c_str() : file;
    if (!ZBase::ReadCrashConfig(config.path.c_str(), config.settings, config.crashKeys)) {
        throw FileFailure(config.path, errno);
    }
    return config;
}

void NeedCrashReporting() {
    if (!ZBASE_HAS_CRASH_REPORTING) throw Failure(kNoCrashReporting);
}

std::string CrashObstacle(const CrashSettings& config) {
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
    const fs::path dumps = config.DumpDirectory();
    std::error_code none;
    if (dumps.empty()) return "dump_path is empty";
    if (fs::exists(dumps, none)) return WhyNotForDumps(dumps);
    const fs::path parent = fs::absolute(dumps, none).parent_path();
    if (!fs::is_directory(parent, none))
        return "there is no directory " + parent.string() + " to make the dump path in";
    return CanMakeFilesIn(parent.string()) ? "" : "the dump path can't be made in " + parent.string();
}
