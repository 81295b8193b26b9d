#include <Base/platform/os/stacks/RecordedStack.h>

#include <link.h>
#include <algorithm>

#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

namespace ZBase::os {

namespace {

constexpr std::size_t kUsualFrames = 1024;
constexpr unsigned int kMostTries = 4;

/// The rules of the compiler's run-time library for addresses outside of modules. It has a lock, so it is
/// called after the thread has resumed, and the result is for the next try.
class KnownCode final : public CodeOutsideModules {
public:
    bool Find(std::uint64_t address, FrameRules& rules) override {
        for (std::size_t i = 0; i != mCount; ++i) {
            if (mPlaces[i].address != address) continue;
            rules = mPlaces[i].rules;
            return mPlaces[i].hasRules;
        }
        if (mCount != kPlaces) mPlaces[mCount++].address = address;
        return false;
    }

    /// Whether new rules were found.
    bool Ask() {
        bool isNew = false;
        for (; mAsked != mCount; ++mAsked) {
            Place& place = mPlaces[mAsked];
            place.hasRules = FindRegisteredRules(place.address, place.rules) && !IsByExpression(place.rules);
            isNew |= place.hasRules;
        }
        return isNew;
    }

private:
    static constexpr std::size_t kPlaces = 32;

    struct Place {
        std::uint64_t address = 0;
        bool hasRules = false;
        FrameRules rules{};
    };

    // An expression is in the registered table, which may be freed when the thread is stopped again.
    static bool IsByExpression(const FrameRules& rules) {
        return rules.cfaIsExpression ||
               std::any_of(std::begin(rules.kinds), std::end(rules.kinds), [](RuleKind kind) {
                   return kind == RuleKind::StoredAt || kind == RuleKind::Computed;
               });
    }

    Place mPlaces[kPlaces];
    std::size_t mCount = 0;
    std::size_t mAsked = 0;
};

}  // namespace

struct RecordedStack::Work {
    ForeignMemory memory;
    KnownCode known;
};

RecordedStack::RecordedStack() : mFrames(kUsualFrames), mpWork(std::make_unique<Work>()) {}

RecordedStack::~RecordedStack() = default;

void RecordedStack::Record(void* thread, ThreadContext& context) {
    const auto walk = [&] {
        mpWork->memory.Forget();
        FrameWalker walker(context, {ForeignMemory::Load, &mpWork->memory}, &mpWork->known);
        mCount = 0;
        do {
            if (mCount < mFrames.size()) mFrames[mCount] = {walker.Address(), walker.StackPointer()};
            ++mCount;
        } while (walker.Step());
    };
    if (IsSuspended(thread)) {
        walk();
    } else {
        // The stack of a running thread may lead into a module that is being unloaded, whose tables would
        // vanish during the walk. While dl_iterate_phdr runs no module is unloaded.
        const auto visit = [](dl_phdr_info*, std::size_t, void* argument) {
            (*static_cast<const decltype(walk)*>(argument))();
            return 1;
        };
        dl_iterate_phdr(visit, const_cast<void*>(static_cast<const void*>(&walk)));
    }
    context.parameterHome[0] = kRecordedFrames;
    context.parameterHome[1] = reinterpret_cast<std::uint64_t>(mFrames.data());
    context.parameterHome[2] = std::min(mCount, mFrames.size());
}

bool RecordedStack::NeedsAnotherTry() {
    const bool isNew = mpWork->known.Ask();
    const bool isTooSmall = mCount > mFrames.size();
    if (!(isNew || isTooSmall) || ++mTries == kMostTries) return false;
    if (isTooSmall) mFrames.resize(mCount + mCount / 4);
    return true;
}

}  // namespace ZBase::os
