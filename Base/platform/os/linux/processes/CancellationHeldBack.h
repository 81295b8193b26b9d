#pragma once

#include <pthread.h>

namespace ZBase::os {

/// Keeps the calling thread from being cancelled: for code with system calls that holds what nobody would
/// release, or from which nothing may be thrown. A cancellation of meanwhile takes effect behind it.
class CancellationHeldBack {
public:
    CancellationHeldBack() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mBefore); }
    ~CancellationHeldBack() { pthread_setcancelstate(mBefore, nullptr); }
    CancellationHeldBack(const CancellationHeldBack&) = delete;
    CancellationHeldBack& operator=(const CancellationHeldBack&) = delete;

private:
    int mBefore = PTHREAD_CANCEL_ENABLE;
};

}  // namespace ZBase::os
