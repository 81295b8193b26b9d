#include "tests/scripted/ScriptedProcesses.h"

#include <cstring>

namespace ZBase::os {

Process OpenProcess(unsigned int id, EProcessAccess) {
    test::gProcesses.askedId = id;
    if (!test::gProcesses.opens) return nullptr;
    ++test::gProcesses.openProcesses;
    return &test::gProcesses;
}

void CloseProcess(Process process, EProcessAccess) {
    if (process == &test::gProcesses) --test::gProcesses.openProcesses;
}

EWaitResult WaitForProcess(Process process, unsigned int milliseconds) {
    test::gProcesses.waited = milliseconds;
    return process == nullptr ? EWaitResult::Failed : test::gProcesses.waitResult;
}

bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity) {
    test::gProcesses.pathCapacity = capacity;
    const char* text = test::gProcesses.imagePath;
    if (process == nullptr || text == nullptr || std::strlen(text) >= capacity) return false;
    do *path++ = static_cast<unsigned char>(*text);
    while (*text++ != 0);
    return true;
}

unsigned short PathSeparator() {
    return test::gProcesses.separator;
}

std::basic_string<unsigned short> CommandLine() {
    return {};
}

EMemoryCounters OpenMemoryCounters() {
    ++test::gProcesses.countersOpened;
    return test::gProcesses.counters;
}

bool GetCommittedBytes(std::uint64_t& bytes) {
    ++test::gProcesses.committedAsked;
    bytes = test::gProcesses.committed;
    return !test::gProcesses.committedFails;
}

}  // namespace ZBase::os
