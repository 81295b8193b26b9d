#pragma once

#include <Base/frame/ReferenceCounted.h>

namespace ZSynch {

/// `ReferenceCounted` over a counter of type `I`, which starts at 0: the first holder calls `AddRef`.
/// With a plain integer as counter, as the library uses it, an object belongs to one thread at a time.
template <class I>
class ReferenceCountedImpl : public virtual ZBase::ReferenceCounted {
public:
    void AddRef() override { ++mCounter; }

    void Release() override {
        if (mCounter == 1) OnFinalRelease();
        if (--mCounter == 0) delete this;
    }

    /// Called by the last `Release`, before the destruction, with the counter still 1.
    virtual void OnFinalRelease() {}

private:
    I mCounter{0};
};

}  // namespace ZSynch
