#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/detail/CrashKeyLog.h>
#include <Base/crash/detail/CrashNotesBlock.h>
#include <Base/crash/detail/LastWords.h>
#include <Base/platform/os/crash/CrashDumps.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>

namespace ZBase {

namespace detail {
struct PreparedText;
}

/// What the configuration and `SetCrashAttr` said.
struct CrashTables {
    std::string configPath;
    CrashConfigTable settings;
    CrashConfigTable keys;
};

/// All that crash reporting keeps in the logic. It is made of zeros and has no destructor, so that a crash
/// finds it valid before the library's objects are constructed, between them and after they are destroyed.
struct CrashState {
    // For those who install, set keys and dump on demand.
    CrashTables* tables;                      // held, not owned; from load to unload
    std::atomic<os::DumpHandler*> handler;    // owned, by the unload
    std::atomic<std::uint64_t> createDump;    // process and thread of the call that runs, or 0
    std::terminate_handler terminateHandler;  // that was there before ours

    // What a crashed thread reads. The texts are in pages of their own, which are never released.
    std::atomic<bool> isNativeDump;
    std::atomic<bool> keepsDumpFile;
    std::atomic<bool> isProduction;  // reports go to `ServerProdURL`
    std::atomic<const detail::PreparedText*> serverUrl;
    std::atomic<const detail::PreparedText*> serverProdUrl;
    std::atomic<const detail::PreparedText*> settingTexts;
    detail::CrashKeyLog keyLog;
    detail::ThreadWords words[detail::kThreadsWithWords];

    // What its dump holds beside the keys.
    detail::LastWordsBlock lastWords[2];  // of this process, and of a child that shares its memory
    detail::CrashNotesBlock notes;
};

static_assert(std::is_trivially_destructible_v<CrashState>);

/// Load.cpp defines it.
extern CrashState gCrash;

/// The first step of the unload.
void ReleaseCrashHandler();

}  // namespace ZBase
