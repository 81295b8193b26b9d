#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/CrashReportSender.h>
#include <Base/crash/CrashStore.h>

#include <filesystem>
#include <string>

/// The result for a dump.
enum class EDelivery {
    eSent,         // and removed
    eSentAndKept,  // `keep_dump_file`, or it can't be removed
    eSentBefore,   // and kept
    eInUse,        // another process writes or sends it
    eGone,         // another process sends it, or has deleted it
    eNoDump,       // not a regular file, or not a complete dump
    eNotSent,      // no status, or one that may change
    eRejected,     // the server rejected it
    eThrottled,    // the limit of this day is reached
};

/// Sends left dumps as their processes would have done: with their crash keys, to their server. However many
/// processes do so in one directory, each dump is sent once.
class CrashDelivery {
public:
    /// `crashKeys` are for dumps without any.
    CrashDelivery(const std::filesystem::path& directory, const ZBase::CrashConfigTable& settings,
                  const ZBase::CrashConfigTable& crashKeys);

    /// Sends the dump of this name. `reportCode` is the server's reply to one that was sent. Throws `Failure`
    /// if it can't be read or claimed.
    EDelivery Deliver(const std::string& name, ZBase::WideString& reportCode);

    /// Removes the files of the day's count and the pause, once no dump is left to be sent.
    void CleanUp() const;

    /// Whether dumps stay after they were sent.
    bool KeepsDumps() const;

private:
    ZBase::ReportResult Send(const std::filesystem::path& dump, bool& isDump, ZBase::WideString& reportCode);

    std::filesystem::path mDirectory;
    const ZBase::CrashConfigTable& mSettings;
    ZBase::CrashConfigTable mCrashKeys;
    ZBase::CrashStore mStore;
};
