#include <Base/platform/os/RecordedStack.h>

#include <link.h>
#include <algorithm>

#include <Base/platform/os/linux/stacks/unwind/FrameWalker.h>

namespace ZBase::os {

namespace {

constexpr std::size_t kUsualFrames = 1024;
constexpr unsigned int kMostTries = 4;

/// What the compiler's run-time library says of addresses that lie in no module. It has a lock, so it is
/// asked when the thread goes on, and what it said serves the next try.
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

    /// Whether there is something new.
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

    // An expression stays in the registered table, which may be gone when the thread is stopped again.
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
        // The stack of a thread that runs may lead into a module that is just being unloaded, whose tables
        // would be gone in the middle of the walk. No module goes while the loader's list is being read.
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
