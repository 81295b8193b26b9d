#include <Base/platform/os/stacks/RecordedStack.h>
#include <Base/platform/os/windows/stacks/FrameWalker.h>
#include <Base/platform/os/windows/stacks/x86_64/Registers.h>

#include <algorithm>

namespace ZBase::os {

namespace {

constexpr std::size_t kUsualFrames = 1024;
constexpr unsigned int kMostTries = 4;

}  // namespace

struct RecordedStack::Work {
    KnownTables tables;
};

RecordedStack::RecordedStack() : mFrames(kUsualFrames), mpWork(std::make_unique<Work>()) {}

RecordedStack::~RecordedStack() = default;

void RecordedStack::Record(void*, ThreadContext& context) {
    FrameWalker walker(ToNative(context), mpWork->tables);
    mCount = 0;
    do {
        if (mCount < mFrames.size()) mFrames[mCount] = {walker.Address(), walker.StackPointer()};
        ++mCount;
    } while (walker.Step());
    context.parameterHome[0] = kRecordedFrames;
    context.parameterHome[1] = reinterpret_cast<std::uint64_t>(mFrames.data());
    context.parameterHome[2] = std::min(mCount, mFrames.size());
}

bool RecordedStack::NeedsAnotherTry() {
    const bool isNew = mpWork->tables.Learn();
    const bool isTooSmall = mCount > mFrames.size();
    if (!(isNew || isTooSmall) || ++mTries == kMostTries) return false;
    if (isTooSmall) mFrames.resize(mCount + mCount / 4);
    return true;
}

}  // namespace ZBase::os
