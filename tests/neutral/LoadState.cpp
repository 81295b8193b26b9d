// What Base/frame/Load.cpp sets up when the library is loaded, as far as texts need it.

#include <Base/frame/ProcessSettings.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/Buffer.h>

#include <clocale>
#include <cstddef>
#include <set>
#include <string>

namespace ZBase {

std::size_t sGrowLimitBytes = 0;
std::size_t sPageSize = 4096;

namespace {

bool ReadSettings() {
    std::setlocale(LC_ALL, "");
    sGrowLimitBytes = static_cast<std::size_t>(Buffer::sDefaultGrowLimitInMB) << 20;
    return GetSymPageSize(&sPageSize);
}

}  // namespace

std::string gContainerPath;
static const bool sSettingsRead = ReadSettings();
std::set<MemGovernorProxy*> gMemGovernors;
std::string gProcessLocale;

}  // namespace ZBase
