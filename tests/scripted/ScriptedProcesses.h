#pragma once

#include <Base/platform/os/processes/Processes.h>

#include <cstdint>

namespace test {

/// The processes for the logic. A null one can't be opened.
struct Processes {
    bool opens = true;
    ZBase::os::EWaitResult waitResult = ZBase::os::EWaitResult::Timeout;
    const char* imagePath = "/usr/bin/program.bin";  // null fails
    unsigned short separator = '/';
    ZBase::os::EMemoryCounters counters = ZBase::os::EMemoryCounters::Ready;
    std::uint64_t committed = 0;
    bool committedFails = false;

    unsigned int askedId = 0;
    int openProcesses = 0;
    unsigned int waited = 77;
    unsigned int pathCapacity = 0;
    int countersOpened = 0;
    int committedAsked = 0;
};

inline Processes gProcesses;

}  // namespace test
