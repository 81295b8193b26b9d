#pragma once

#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

namespace ZBase::os {

/// Looks up code outside of modules in the compiler's run-time library for a walk of the calling thread's
/// stack, unless the thread may hold that library's lock: in a signal handler, in that library's own code, or
/// in a function called from it.
class AskingRegistry final : public CodeOutsideModules {
public:
    /// `isAsking` is per thread: whether one of its walks is in a look-up already.
    explicit AskingRegistry(bool& isAsking) : mIsAsking(isAsking) {}

    bool Find(std::uint64_t address, FrameRules& rules) override;

    /// Call for each step of the walk.
    void Passed(const FrameWalker& walker);

private:
    bool& mIsAsking;
    bool mMayAsk = true;
};

}  // namespace ZBase::os
