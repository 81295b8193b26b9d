// What happens when the library is loaded and unloaded. The objects of this file are constructed from the
// first to the last while the library is loaded, before any call can reach it, and destroyed from the last to
// the first when it is unloaded or the process exits. Nothing else in the library has a constructor that runs
// at load, so this order is the whole order; a test reads it off the library. The streams of <iostream> come
// before all of them.

#include <Base/crash/detail/CrashState.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/diagnostics/detail/ForkedLocks.h>
#include <Base/frame/Environment.h>
#include <Base/frame/ProcessSettings.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/Buffer.h>
#include <Base/memory/detail/DebugBuffer.h>
#include <Base/switches/FeatureFlagMgr.h>

#include <clocale>
#include <iostream>

namespace ZBase {

std::size_t sGrowLimitBytes = 0;
std::size_t sPageSize = 4096;

namespace {

std::size_t ReadGrowLimitBytes() {
    const auto limit = static_cast<std::size_t>(GetNumericEnvironmentVariable(
        "ZENT_BUFFER_DYNAMIC_GROW_LIMIT", static_cast<std::int64_t>(Buffer::sDefaultGrowLimitInMB)));
    // Compared as unsigned, so a negative limit is a huge one; kept for settings that use -1 for no limit.
    return (limit < Buffer::sMinimumGrowLimitInMB ? Buffer::sMinimumGrowLimitInMB : limit) << 20;
}

bool ReadSettings() {
    std::setlocale(LC_CTYPE, "");
    Buffer::sDefaultBlockSize =
        static_cast<std::size_t>(GetNumericEnvironmentVariable("ZENT_BUFFER_BLOCK_SIZE", 4096));
    if (Buffer::sGrowDanamically) sGrowLimitBytes = ReadGrowLimitBytes();
    return GetSymPageSize(&sPageSize);
}

// The process, not only this library, moves to the user's locale.
bool EnterUserLocale() {
    const char* name = std::setlocale(LC_ALL, "");
    if (name != nullptr) gProcessLocale = name;
    return true;
}

// The handler goes before the tables that its reports are made of.
struct CrashTablesInForce : CrashTables {
    CrashTablesInForce() { gCrash.tables = this; }
    ~CrashTablesInForce() { ReleaseCrashHandler(); }
    CrashTablesInForce(const CrashTablesInForce&) = delete;
    CrashTablesInForce& operator=(const CrashTablesInForce&) = delete;
};

}  // namespace

std::ostream& StandardOutput() {
    return std::cout;
}

std::string gContainerPath;
static const bool sSettingsRead = ReadSettings();
std::set<MemGovernorProxy*> gMemGovernors;
FeatureFlagMgr FeatureFlagMgr::mFeatureFlagMgrInst;
AppGlobalEventCallback* gAppGlobalEventCallback = nullptr;
DebugBufferList gDebugBufferList;
CallStackImp::CallStackCriticalSection gCallStackLock;
CallStackImp::CallStackCriticalSection gTracerLock;
static const bool sLocksKeptSound = detail::KeepLocksSoundInChildren();
DbgHelpBuilder gDbgHelpBuilder;

constinit CrashState gCrash{};
static CrashTablesInForce sCrashTables;

std::string gProcessLocale;
static const bool sUserLocaleEntered = EnterUserLocale();

}  // namespace ZBase
