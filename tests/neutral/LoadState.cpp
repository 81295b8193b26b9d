// What Base/frame/Load.cpp sets up when the library is loaded, as far as what knows no processor needs it.

#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/detail/LineText.h>
#include <Base/frame/ProcessSettings.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/Buffer.h>
#include <Base/memory/detail/DebugBuffer.h>
#include <Base/switches/FeatureFlagMgr.h>

#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace ZBase {

std::size_t sGrowLimitBytes = 0;
std::size_t sPageSize = 4096;

namespace {

bool ReadSettings() {
    sGrowLimitBytes = static_cast<std::size_t>(Buffer::sDefaultGrowLimitInMB) << 20;
    return GetSymPageSize(&sPageSize);
}

[[noreturn]] void NoWalker() {
    std::fputs("Stacks are walked only where the processor's registers are known\n", stderr);
    std::abort();
}

}  // namespace

std::string gContainerPath;
static const bool sSettingsRead = ReadSettings();
std::set<MemGovernorProxy*> gMemGovernors;
FeatureFlagMgr FeatureFlagMgr::mFeatureFlagMgrInst;
AppGlobalEventCallback* gAppGlobalEventCallback = nullptr;
DebugBufferList gDebugBufferList;
std::string gProcessLocale = std::setlocale(LC_ALL, "");

CallStack* CreateCallStack(void*) {
    NoWalker();
}

std::string detail::PointerText(const void*) {
    NoWalker();
}

}  // namespace ZBase
