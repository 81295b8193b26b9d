#pragma once

#include <sys/types.h>

namespace ZBase::os {

/// Address space and descriptors that are held for the crash of a process that has none left. A dump copies
/// each stack, and opens files.
class CrashReserve {
public:
    /// Takes what it does not hold yet: what the system refuses is asked for again the next time.
    void Take();

    /// Runs on the crashed thread. No heap, no lock. The address space that a guest finds is that of another
    /// process, and stays.
    void LetGo(bool isGuest);

private:
    bool IsHeld(int descriptor) const;

    static constexpr int kDescriptors = 8;

    void* mpMemory = nullptr;  // owned
    int mDescriptors[kDescriptors] = {-1, -1, -1, -1, -1, -1, -1, -1};
    dev_t mDevice = 0;
};

}  // namespace ZBase::os
