#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/frame/Api.h>

#include <memory>
#include <string>
#include <vector>

namespace ZBase {

namespace os {
class HeldFile;
}

/// A dump that only this process may send. It is called "NAME.sending.dmp" meanwhile, and gets its name back
/// at the end of the object. The claim of a process that has ended is void.
class ZBASE_API ClaimedDump {
public:
    ClaimedDump();
    ~ClaimedDump();
    ClaimedDump(const ClaimedDump&) = delete;
    ClaimedDump& operator=(const ClaimedDump&) = delete;

    /// Any file "NAME.dmp", or "NAME.sending.dmp". False if another process has claimed it, or if it is not a
    /// regular file: links are not followed, and opening does not wait. If the system refuses it, `errno`
    /// says why; of a claimed one it is `EWOULDBLOCK`, or what it was.
    bool Claim(const std::string& path);

    /// Its current path.
    const std::string& Path() const { return mPath; }

    /// Its server has it: deletes it; false if that fails.
    bool Remove();

    /// Its server has it, and it stays. False if it can't be marked.
    bool MarkSent();

private:
    std::unique_ptr<os::HeldFile> mpFile;
    std::string mName;  // the path that it gets back
    std::string mPath;  // empty without a claim
};

/// The directory of an application's dumps, which is kept within the configured limits. A dump is a regular
/// file there whose name is a GUID and ".dmp"; while it is being sent, the GUID and ".sending.dmp". A line at
/// its end marks it as sent. The attachments of its report are in a directory, the GUID and ".attachments",
/// which counts as a part of it. Other files, and dumps of other users, are not touched.
///
/// A process that writes a dump, or sends it, locks its file, and no other removes or sends a locked one: any
/// number of threads and processes may work on one directory.
class ZBASE_API CrashStore {
public:
    /// `settings` are those of "crash_report.ini": `max_dumps`, `max_dump_megabytes`, `max_age_days`. The
    /// directory need not exist.
    CrashStore(const std::string& directory, const CrashConfigTable& settings);
    ~CrashStore();
    CrashStore(const CrashStore&) = delete;
    CrashStore& operator=(const CrashStore&) = delete;

    /// Deletes the dumps that are too old, and then the oldest while there are too many or, together, too
    /// large. Returns the number deleted. The dump at the path `without` counts as deleted already; those of
    /// other users stay, and do not count.
    unsigned int Trim(const std::string& without = std::string());

    /// The names of the dumps, oldest first. The age of a dump is that of its last change.
    std::vector<std::string> Dumps() const;

    /// Whether this dump is marked as sent.
    bool IsSent(const std::string& name) const;

    /// Whether there is a dump without that mark.
    bool HasUnsent() const;

    /// Only one process at a time sends the left dumps in the background: false if there is another one, or
    /// no directory. Lasts until the end of the object.
    bool BecomeSender();

private:
    struct Entry;
    std::vector<Entry> Entries() const;
    bool Remove(const Entry& entry);

    std::string mDirectory;
    std::unique_ptr<os::HeldFile> mpSender;
    unsigned long long mMaxDumps;   // 0: any number
    unsigned long long mMaxOctets;  // of all dumps; 0: any number
    unsigned int mMaxAgeDays;       // 0: any age
};

}  // namespace ZBase
