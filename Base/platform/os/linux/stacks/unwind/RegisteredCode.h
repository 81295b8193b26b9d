#pragma once

#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

namespace ZBase::os {

/// Asks the compiler's run-time library about code outside modules for a walk of the calling thread's stack,
/// unless the thread may hold that library's lock: in a signal handler, in that library's own code, or in
/// what it called.
class AskingRegistry final : public CodeOutsideModules {
public:
    /// `isAsking` is the thread's own, and tells whether one of its walks is asking already.
    explicit AskingRegistry(bool& isAsking) : mIsAsking(isAsking) {}

    bool Find(std::uint64_t address, FrameRules& rules) override;

    /// To be told of each step of the walk.
    void Passed(const FrameWalker& walker);

private:
    bool& mIsAsking;
    bool mMayAsk = true;
};

}  // namespace ZBase::os
