#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/DumpDirectory.h>
#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/stacks/AllStacks.h>

#include <new>

namespace ZBase::detail {

bool HaveDumpDirectory(WideString& directory) {
    directory = TextSetting<"dump_path">(gCrash.tables->settings);
    return os::PathExists(directory.c_str()) || os::CreatePrivateDirectory(directory.c_str());
}

void WriteStacksWhenAsked(const WideString& directory) {
    try {
        if (!HasTextSetting<"stacks_on">(gCrash.tables->settings)) return;
        os::WriteStacksAtSignal(TextSetting<"stacks_on">(gCrash.tables->settings).c_str(), directory.c_str());
    } catch (const std::bad_alloc&) {  // a dump is worth more
    }
}

}  // namespace ZBase::detail
