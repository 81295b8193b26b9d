#pragma once

#include <cstddef>

namespace ZBase::os {

/// Counts all units, and writes those that fit.
template <class Unit>
class CountedOutput {
public:
    CountedOutput(Unit* destination, std::size_t capacity)
        : mpDestination(destination), mCapacity(capacity) {}

    void Put(Unit unit) {
        if (mCount < mCapacity) mpDestination[mCount] = unit;
        ++mCount;
    }
    std::size_t Count() const { return mCount; }

private:
    Unit* mpDestination;  // held, not owned
    std::size_t mCapacity;
    std::size_t mCount = 0;
};

}  // namespace ZBase::os
