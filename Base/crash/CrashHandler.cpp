#include <Base/crash/CrashHandler.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/CrashDumps.h>
#include <Base/platform/os/Files.h>
#include <Base/platform/os/ReportSender.h>

#include <cstdlib>
#include <cstring>

namespace ZBase {

namespace {

// Runs on the crashed thread's alternate stack, or on the thread that called `CreateDump`. No heap, no lock.
bool CrashDumpCallback(const char* dump, bool succeeded) {
    if (!succeeded) return false;
    const ReportResult result = detail::SendPreparedReport(dump);
    if (result == RESULT_SUCCEEDED && !gKeepDumpFile) os::DeleteDump(dump);
    return gInCreateDump || !gNativeDump;
}

bool IsSet(const unsigned short* key) {
    const auto setting = gCrashConfig.find(key);
    return setting != gCrashConfig.end() && IsCrashSettingTrue(setting->second);
}

// The directory of the dumps, made if it is missing; only its last level.
bool HaveDumpDirectory(WideString& directory) {
    const auto setting = gCrashConfig.find("dump_path"_w);
    directory = setting == gCrashConfig.end() ? "crash_dumps"_w : setting->second;
    return os::PathExists(directory.c_str()) || os::CreatePrivateDirectory(directory.c_str());
}

// One unit per octet, whatever the locale.
WideString WidenAscii(const char* text) {
    WideString wide;
    for (; *text != 0; ++text) {
        const auto octet = static_cast<unsigned char>(*text);
        wide.push_back(octet < 0x80 ? octet : '?');
    }
    return wide;
}

}  // namespace

bool InstallCrashHandler() {
    gCrashConfigPath = FindCrashConfig().c_str();
    if (!ReadCrashConfig(gCrashConfigPath.c_str(), gCrashConfig, gCrashKeys)) return false;
    // A handler of an earlier installation goes on with what was read, even if this installation fails.
    detail::PrepareCrashReport();
    if (JudgeCrashSettings(gCrashConfig) != ECrashSettings::eComplete) return false;
    if (IsSet("native_dump"_w)) gNativeDump = true;
    if (IsSet("keep_dump_file"_w)) gKeepDumpFile = true;
    WideString directory;
    if (!HaveDumpDirectory(directory)) return false;

    os::PrepareReportSender();
    os::DumpHandler* const handler = os::CreateDumpHandler(directory.c_str(), CrashDumpCallback);
    if (handler == nullptr) return false;
    gExceptionHandler = handler;  // an earlier one stays behind it
    detail::PutCrashKeysIntoDumps();
    return true;
}

bool CreateDump() {
    if (gExceptionHandler == nullptr || gInCreateDump.exchange(true)) return false;
    detail::MarkHanging(true);
    const bool written = os::WriteDump(gExceptionHandler);
    detail::MarkHanging(false);
    gInCreateDump = false;
    return written;
}

bool SetCrashAttr(const char* key, const char* value, bool overwrite) {
    if (key == nullptr || value == nullptr) return false;
    const WideString wideKey = WidenAscii(key);
    if (!overwrite && gCrashKeys.contains(wideKey)) return false;
    gCrashKeys[wideKey] = WidenAscii(value);
    if (std::strcmp(key, "customer_dsi") == 0 && std::atoi(value) != 0) gCustomerDsi = true;
    if (gExceptionHandler != nullptr) detail::PrepareCrashReport();
    return true;
}

bool InstallCrashStack() {
    return os::InstallCrashStack();
}

void ReleaseCrashHandler() {
    os::DestroyDumpHandlers(gExceptionHandler);
    gExceptionHandler = nullptr;
}

}  // namespace ZBase
