#include <Base/crash/CrashHandler.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/CrashDumps.h>
#include <Base/platform/os/Files.h>
#include <Base/platform/os/ReportSender.h>
#include <Base/platform/os/Threads.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace ZBase {

namespace {

constexpr unsigned int kDumpSeconds = 10;

// Milliseconds for which an unload waits for a `CreateDump`; more than its dump and its upload may take.
constexpr unsigned long kLongestCreateDump = 150'000;

// Runs on the crashed thread's alternate stack, or on the thread that called `CreateDump`. No heap, no lock.
bool CrashDumpCallback(const os::TriedDump& dump) {
    if (!dump.succeeded) return false;
    const ReportResult result = detail::SendPreparedReport(dump);
    if (result == RESULT_SUCCEEDED && !gKeepDumpFile) os::DeleteDump(dump.path);
    return dump.onDemand || !gNativeDump;
}

// The calling thread as one that runs `CreateDump`. The child of a fork is another process.
std::uint64_t ThisCall() {
    return std::uint64_t{os::CurrentProcessId()} << 32 | os::CurrentThreadId();
}

bool IsOfThisProcess(std::uint64_t call) {
    return call != 0 && call >> 32 == os::CurrentProcessId();
}

bool BeginCreateDump() {
    std::uint64_t running = gInCreateDump;
    return !IsOfThisProcess(running) && gInCreateDump.compare_exchange_strong(running, ThisCall());
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
    os::DumpHandler* const handler =
        os::CreateDumpHandler(directory.c_str(), {detail::BeginReport, CrashDumpCallback}, kDumpSeconds);
    if (handler == nullptr) return false;
    gExceptionHandler = handler;  // an earlier one stays behind it
    return true;
}

bool CreateDump() {
    if (gExceptionHandler == nullptr || os::SharesMemory() || !BeginCreateDump()) return false;
    // Whoever unloads clears the handler first and then looks whether a call runs.
    os::DumpHandler* const handler = gExceptionHandler;
    const bool written = handler != nullptr && os::WriteDump(handler);
    gInCreateDump = 0;
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
    os::DumpHandler* const handler = gExceptionHandler.exchange(nullptr);
    const auto isRunning = [] { return IsOfThisProcess(gInCreateDump) && gInCreateDump != ThisCall(); };
    for (unsigned long waited = 0; isRunning() && waited < kLongestCreateDump; ++waited) {
        os::SleepMilliseconds(1);
    }
    if (!IsOfThisProcess(gInCreateDump)) os::DestroyDumpHandlers(handler);
}

}  // namespace ZBase
