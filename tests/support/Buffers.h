#pragma once

#include <Base/ZBase.h>

#include <cstddef>
#include <string>

namespace test {

using ZBase::BufferPtr;

/// The implementations, as the parameter of tests that hold for each.
enum class Implementation { kSingleThread, kLockFree };
inline constexpr Implementation kImplementations[] = {Implementation::kSingleThread,
                                                      Implementation::kLockFree};

struct BufferArguments {
    int initialBlocks = 0;
    int growthBlocks = 1;
    ZBase::MemoryContract* contract = nullptr;
    std::size_t blockSize = 4096;
    bool onBoundary = false;
};

inline BufferPtr MakeBuffer(Implementation implementation, const BufferArguments& arguments = {}) {
    const auto create = implementation == Implementation::kLockFree ? ZBase::CreateBufferThreadSafe
                                                                    : ZBase::CreateBufferSingleThread;
    return BufferPtr(create(arguments.initialBlocks, arguments.growthBlocks, arguments.contract,
                            arguments.blockSize, arguments.onBoundary));
}

inline std::string NameOf(Implementation implementation) {
    return implementation == Implementation::kLockFree ? "LockFree" : "SingleThread";
}

/// The text of a failure that `operation` throws as a `T`; "" when it throws nothing.
template <class T, class Operation>
std::string TextOfFailure(Operation operation) {
    try {
        operation();
    } catch (const T& failure) {
        return ZBase::WideCharToUTF8(failure.GetMessage(), false).c_str();
    }
    return "";
}

}  // namespace test
