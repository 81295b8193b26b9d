#include <Base/platform/os/linux/stacks/unwind/RegisteredCode.h>

namespace ZBase::os {

bool AskingRegistry::Find(std::uint64_t address, FrameRules& rules) {
    if (!mMayAsk || mIsAsking) return false;
    mIsAsking = true;
    const bool isFound = FindRegisteredRules(address, rules);
    mIsAsking = false;
    return isFound;
}

void AskingRegistry::Passed(const FrameWalker& walker) {
    mMayAsk = mMayAsk && !walker.WasSignalFrame() && !IsInRegistry(walker.Module());
}

}  // namespace ZBase::os
