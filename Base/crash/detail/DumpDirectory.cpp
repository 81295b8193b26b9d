#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/DumpDirectory.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/AllStacks.h>
#include <Base/platform/os/Files.h>

namespace ZBase::detail {

bool HaveDumpDirectory(WideString& directory) {
    const auto setting = gCrashConfig.find("dump_path"_w);
    directory = setting == gCrashConfig.end() ? "crash_dumps"_w : setting->second;
    return os::PathExists(directory.c_str()) || os::CreatePrivateDirectory(directory.c_str());
}

void WriteStacksWhenAsked(const WideString& directory) {
    const auto signal = gCrashConfig.find("stacks_on"_w);
    if (signal != gCrashConfig.end()) os::WriteStacksAtSignal(signal->second.c_str(), directory.c_str());
}

}  // namespace ZBase::detail
