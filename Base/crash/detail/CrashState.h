#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/platform/os/CrashDumps.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace ZBase {

// The crash state, from load to unload. Load.cpp defines it.

extern std::string gCrashConfigPath;
extern CrashConfigTable gCrashConfig;
extern CrashConfigTable gCrashKeys;
extern bool gNativeDump;
extern bool gKeepDumpFile;
extern std::atomic<bool> gCustomerDsi;
extern std::atomic<std::uint64_t> gInCreateDump;         // process and thread of the call, or 0
extern std::atomic<os::DumpHandler*> gExceptionHandler;  // owned

/// What the unload begins with.
void ReleaseCrashHandler();

}  // namespace ZBase
