#pragma once

#include <windows.h>

#include <string>

#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/windows/crash/DumpFile.h>
#include <Base/platform/os/windows/crash/SenderProcess.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

namespace ZBase::os {

/// Writes dumps of this process. The sender does so from outside, where no lock of this process counts;
/// without one it is done here, on a thread of its own.
class DumpWriter {
public:
    /// `directory` is absolute. A dump takes at most about so many megabytes, and so long.
    DumpWriter(const std::wstring& directory, DumpUser user, bool onDemand, DumpLimits limits);

    /// Dumps the process for the calling thread, whose state is in `pointers`. Gives what the user answers.
    /// No heap, no lock, but of a dump on demand, whose sender is started first.
    bool Write(EDumpCause cause, EXCEPTION_POINTERS* pointers);

private:
    static constexpr std::size_t kLongestPath = 0x8000;
    static constexpr std::size_t kLongestNarrow = 3 * kLongestPath;

    DumpRequest RequestFor(const DumpContent& content, EXCEPTION_POINTERS* pointers) const;
    bool WriteFiles(const DumpContent& content, EXCEPTION_POINTERS* pointers);
    bool WriteIn(const wchar_t* directory, const DumpContent& content, EXCEPTION_POINTERS* pointers);
    bool WriteFromOutside(const DumpContent& content, EXCEPTION_POINTERS* pointers);
    bool WriteFromInside(const DumpContent& content, EXCEPTION_POINTERS* pointers);
    bool OpenFile(const wchar_t* directory);
    void CloseFile();
    SECURITY_DESCRIPTOR* Owner();
    void SayWhere(const wchar_t* directory, const char* reason);

    DumpUser mUser;
    bool mOnDemand;
    DumpLimits mLimits;
    OwnersOnly mOwner;
    HANDLE mFile = INVALID_HANDLE_VALUE;
    wchar_t mDirectory[kLongestPath];
    wchar_t mTemporary[kLongestPath];  // another directory, with a separator at its end
    wchar_t mPath[kLongestPath + 64];
    char mNarrowPath[kLongestNarrow + 64];
    char mElsewhere[2 * kLongestNarrow + 256];  // empty while the dump lies in its directory
};

/// Starts the thread that writes dumps where there is no sender. False if there is no memory.
bool PrepareInsideDumps();

/// The sender that the calling thread's dump was written by, and that sends it too; null if there is none.
SenderProcess* SenderOfThisDump();

/// Has a sender ready for a crash. Takes the heap.
void PrepareSenderForCrash();

}  // namespace ZBase::os
