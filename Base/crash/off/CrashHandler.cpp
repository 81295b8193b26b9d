// The crash handler of a library that is built without crash reporting: it behaves as with an incomplete
// configuration, except that stacks of a hanging process work: they need no dumps.

#include <Base/crash/CrashHandler.h>
#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/DumpDirectory.h>

#include <cstdlib>
#include <cstring>

namespace ZBase {

namespace {

// One unit per octet, in every locale.
WideString WidenAscii(const char* text) {
    WideString wide;
    for (; *text != 0; ++text) {
        const auto octet = static_cast<unsigned char>(*text);
        wide.push_back(octet < 0x80 ? octet : '?');
    }
    return wide;
}

}  // namespace

// The configuration is in force all the same.
bool InstallCrashHandler() {
    gCrash.tables->configPath = FindCrashConfig().c_str();
    ReadCrashConfig(gCrash.tables->configPath.c_str(), gCrash.tables->settings, gCrash.tables->keys);
    WideString directory;
    const bool isWanted = detail::HasTextSetting<"stacks_on">(gCrash.tables->settings) &&
                          JudgeCrashSettings(gCrash.tables->settings) == ECrashSettings::eComplete;
    if (isWanted && detail::HaveDumpDirectory(directory)) detail::WriteStacksWhenAsked(directory);
    return false;
}

bool CreateDump() {
    return false;
}

bool SetCrashAttr(const char* key, const char* value, bool overwrite) {
    if (key == nullptr || value == nullptr) return false;
    const WideString wideKey = WidenAscii(key);
    if (!overwrite && gCrash.tables->keys.contains(wideKey)) return false;
    gCrash.tables->keys[wideKey] = WidenAscii(value);
    if (std::strcmp(key, detail::kProductionKey) == 0 && std::atoi(value) != 0) gCrash.isProduction = true;
    return true;
}

bool InstallCrashStack() {
    return false;
}

void ReleaseCrashHandler() {}

}  // namespace ZBase
