#pragma once

#include <signal.h>

namespace ZBase::os {

/// The alternate signal stack of one thread: 64 KiB above a guard page. A thread that has one of at least 16
/// KiB keeps that.
class CrashStack {
public:
    CrashStack() = default;
    ~CrashStack() { Remove(); }
    CrashStack(const CrashStack&) = delete;
    CrashStack& operator=(const CrashStack&) = delete;

    bool Install();

private:
    void Remove();

    stack_t mStack{};
    void* mpPages = nullptr;  // owned
};

}  // namespace ZBase::os
