#pragma once

#include <Base/platform/os/crash/CrashDumps.h>

#include <client/linux/handler/exception_handler.h>
#include <signal.h>
#include <climits>
#include <cstddef>
#include <string>

namespace ZBase::os {

/// Writes dumps of this process with one of Breakpad's handlers. Breakpad clones a process that reads this
/// one; the threads are stopped meanwhile.
class DumpWriter {
public:
    /// `directory` is absolute and short enough for a file name after it. A dump takes at most `megabytes`.
    DumpWriter(const std::string& directory, DumpUser user, bool onDemand, unsigned int megabytes);

    /// Dumps the crash that a signal handler was called for. Returns the user's result. Runs on the crashed
    /// thread. No heap, no lock.
    bool WriteCrash(int signal, siginfo_t* information, void* context);

    /// Dumps the process at the caller's position. Returns the user's result, false if there is no dump.
    bool WriteNow();

private:
    template <class Write>
    bool Dump(EDumpCause cause, Write write);
    bool OpenFile(const char* directory);
    bool OpenInDirectory();
    bool DropIfEmpty(bool written);
    bool EndDump(bool written);
    void CloseFile();
    void SayWhere(const char* directory, const char* why, const char* reason);

    DumpUser mUser;
    bool mOnDemand;
    off_t mMostOctets;
    int mFile = -1;
    char mDirectory[PATH_MAX];
    char mTemporary[PATH_MAX];  // another directory
    char mPath[PATH_MAX];
    char mElsewhere[3 * PATH_MAX];  // empty while the dump is in its directory
    google_breakpad::ExceptionHandler mHandler;
};

}  // namespace ZBase::os
