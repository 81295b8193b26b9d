#pragma once

#include <Base/ZBase.h>

#include <filesystem>
#include <string>

/// What became of a dump.
enum class EDelivery {
    eSent,         // and removed
    eSentAndKept,  // `keep_dump_file`, or it can't be removed
    eSentBefore,   // and kept
    eInUse,        // another process writes or sends it
    eNoDump,       // no regular file, or no whole dump
    eNotSent,      // no answer, or one that leaves hope
    eRejected,     // the server does not want it
    eThrottled,    // the reports of this day are used up
};

/// Sends dumps that were left behind as the processes that left them would have done: with their crash keys,
/// to the server of theirs. However many do so in one directory, each dump is sent once.
class CrashDelivery {
public:
    /// `crashKeys` are for dumps that hold none.
    CrashDelivery(const std::filesystem::path& directory, const ZBase::CrashConfigTable& settings,
                  const ZBase::CrashConfigTable& crashKeys);

    /// Sends the dump of this name. `reportCode` is the server's answer to one that was sent.
    EDelivery Deliver(const std::string& name, ZBase::WideString& reportCode);

    /// Removes what was noted here, the count of the day and the pause, once no dump is left to be sent.
    void CleanUp() const;

    /// Whether dumps stay once they are sent.
    bool KeepsDumps() const;

private:
    ZBase::ReportResult Send(const std::filesystem::path& dump, bool& isDump, ZBase::WideString& reportCode);

    std::filesystem::path mDirectory;
    const ZBase::CrashConfigTable& mSettings;
    const ZBase::CrashConfigTable& mCrashKeys;
    ZBase::CrashStore mStore;
};
