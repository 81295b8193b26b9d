#include <Base/crash/CrashHandler.h>
#include <Base/crash/CrashStore.h>
#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/DumpDirectory.h>
#include <Base/crash/detail/LastWords.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/crash/ReportSender.h>
#include <Base/platform/os/processes/Forks.h>
#include <Base/platform/os/processes/Patience.h>
#include <Base/platform/os/processes/Threads.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <string>

namespace ZBase {

namespace {

// The milliseconds that an unload waits for a `CreateDump`; more than the limits of its dump and its upload.
constexpr std::uint64_t kLongestCreateDump = 150'000;

// Runs on the crashed thread's alternate stack, or on the thread that called `CreateDump`. No heap, no lock.
bool CrashDumpCallback(const os::TriedDump& dump) {
    const ReportResult result = dump.succeeded ? detail::SendPreparedReport(dump) : RESULT_FAILED;
    detail::EndReport();
    if (!dump.succeeded) return false;
    if (result == RESULT_SUCCEEDED)
        gCrash.keepsDumpFile ? os::MarkDumpSent(dump.path) : os::DeleteDump(dump.path);
    return dump.onDemand || !gCrash.isNativeDump;
}

// The calling thread as an id for `CreateDump`. A forked child is another process.
std::uint64_t ThisCall() {
    return std::uint64_t{os::CurrentProcessId()} << 32 | os::CurrentThreadId();
}

bool IsOfThisProcess(std::uint64_t call) {
    return call != 0 && call >> 32 == os::CurrentProcessId();
}

bool BeginCreateDump() {
    std::uint64_t running = gCrash.createDump;
    return !IsOfThisProcess(running) && gCrash.createDump.compare_exchange_strong(running, ThisCall());
}

[[gnu::tls_model("initial-exec")]] thread_local constinit bool tHoldsKeys = false;  // while it forks

// For setting a key, and for the installation. Its holder may wait for the heap, whose lock a forking thread
// may hold, so a fork waits only a while; what is under it is whole wherever its holder waits.
std::mutex& KeysMutex() {
    alignas(std::mutex) static unsigned char sPlace[sizeof(std::mutex)];
    static std::mutex* const spMutex = [] {
        auto* const mutex = new (sPlace) std::mutex;  // never destroyed: keys may be set until the end
        os::CallAtFork([] { tHoldsKeys = os::Patience().Until([] { return KeysMutex().try_lock(); }); },
                       [] {
                           if (tHoldsKeys) KeysMutex().unlock();
                       },
                       [] {
                           ::new (static_cast<void*>(&KeysMutex())) std::mutex;
                           gCrash.keyLog.ForgetReaders();
                       });
        return mutex;
    }();
    return *spMutex;
}

// One dump may take no more than all together.
os::DumpLimits DumpLimits() {
    const unsigned int all = detail::NumberSetting<"max_dump_megabytes">(gCrash.tables->settings);
    const unsigned int one = detail::NumberSetting<"dump_megabytes">(gCrash.tables->settings);
    return {detail::NumberSetting<"dump_seconds">(gCrash.tables->settings),
            all == 0 ? one : std::min(one, all), detail::ChoiceSetting<"chain">(gCrash.tables->settings)};
}

void LookAfterStore(const WideString& directory) {
    try {
        const std::string place = detail::ReportText(directory);
        CrashStore store(place, gCrash.tables->settings);
        store.Trim();
        const bool sends = detail::ChoiceSetting<"send_left">(gCrash.tables->settings);
        if (sends && store.HasUnsent()) detail::SendLeftDumps(std::filesystem::absolute(place).string());
    } catch (const std::exception&) {  // no memory: the next start trims
    }
}

// An octet beyond ASCII becomes "?", in every locale.
std::string KeepAscii(const char* text) {
    std::string ascii = text;
    for (char& c : ascii) c = static_cast<unsigned char>(c) < 0x80 ? c : '?';
    return ascii;
}

WideString Widen(const std::string& ascii) {
    return WideString(ascii.begin(), ascii.end());
}

bool ReadAndInstall() {
    gCrash.tables->configPath = FindCrashConfig().c_str();
    if (!ReadCrashConfig(gCrash.tables->configPath.c_str(), gCrash.tables->settings, gCrash.tables->keys))
        return false;
    // A handler of an earlier installation uses the new configuration, even if this installation fails.
    detail::PrepareCrashReport();
    if (JudgeCrashSettings(gCrash.tables->settings) != ECrashSettings::eComplete) return false;
    if (detail::ChoiceSetting<"native_dump">(gCrash.tables->settings)) gCrash.isNativeDump = true;
    if (detail::ChoiceSetting<"keep_dump_file">(gCrash.tables->settings)) gCrash.keepsDumpFile = true;
    WideString directory;
    if (!detail::HaveDumpDirectory(directory)) return false;

    os::PrepareReportSender();
    os::DumpHandler* const handler =
        os::CreateDumpHandler(directory.c_str(), {detail::BeginReport, CrashDumpCallback}, DumpLimits());
    if (handler == nullptr) return false;
    detail::WatchTerminate();
    gCrash.handler = handler;  // which keeps the earlier ones
    detail::WriteStacksWhenAsked(directory);
    LookAfterStore(directory);
    return true;
}

}  // namespace

bool InstallCrashHandler() {
    const std::scoped_lock keys(KeysMutex());
    try {
        return ReadAndInstall();
    } catch (const std::bad_alloc&) {  // nothing throws behind the handler
        return false;
    }
}

bool CreateDump() {
    if (gCrash.handler == nullptr || os::SharesMemory() || !BeginCreateDump()) return false;
    // An unload first clears the handler and then tests whether a call runs.
    os::DumpHandler* const handler = gCrash.handler;
    const bool written = handler != nullptr && os::WriteDump(handler);
    gCrash.createDump = 0;
    return written;
}

bool SetCrashAttr(const char* key, const char* value, bool overwrite) {
    if (key == nullptr || value == nullptr) return false;
    const std::string narrowKey = KeepAscii(key);
    const std::string narrowValue = KeepAscii(value);
    WideString wideValue = Widen(narrowValue);
    const std::scoped_lock keys(KeysMutex());
    const auto [place, isNew] = gCrash.tables->keys.try_emplace(Widen(narrowKey));
    if (!isNew && !overwrite) return false;
    place->second.swap(wideValue);
    const bool wasProduction = gCrash.isProduction;
    if (std::strcmp(key, detail::kProductionKey) == 0 && std::atoi(value) != 0) gCrash.isProduction = true;
    try {
        if (gCrash.handler != nullptr) detail::PrepareCrashKey(detail::ReportName(narrowKey), narrowValue);
    } catch (const std::bad_alloc&) {  // what no report has is not set
        gCrash.isProduction = wasProduction;
        isNew ? void(gCrash.tables->keys.erase(place)) : place->second.swap(wideValue);
        throw;
    }
    return true;
}

bool InstallCrashStack() {
    return os::InstallCrashStack();
}

void ReleaseCrashHandler() {
    detail::UnwatchTerminate();
    os::DumpHandler* const handler = gCrash.handler.exchange(nullptr);
    // Some systems end all other threads before they unload.
    const auto isRunning = [] {
        const std::uint64_t call = gCrash.createDump;
        return IsOfThisProcess(call) && call != ThisCall() &&
               !os::IsThreadGone(static_cast<unsigned long>(call & 0xFFFF'FFFF));
    };
    os::Patience(kLongestCreateDump).Until([&] { return !isRunning(); });
    if (!IsOfThisProcess(gCrash.createDump)) os::DestroyDumpHandlers(handler);
}

}  // namespace ZBase
