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

/// A dump that this process alone sends, whoever else tries. It is called "NAME.sending.dmp" meanwhile, and
/// has its name back at the end of the object. The claim of a process that has ended counts for nothing.
class ZBASE_API ClaimedDump {
public:
    ClaimedDump();
    ~ClaimedDump();
    ClaimedDump(const ClaimedDump&) = delete;
    ClaimedDump& operator=(const ClaimedDump&) = delete;

    /// Any file "NAME.dmp", or "NAME.sending.dmp". False if another one has it, or if it is no regular file:
    /// links are not followed, and nothing is waited for.
    bool Claim(const std::string& path);

    /// Where it lies now.
    const std::string& Path() const { return mPath; }

    /// Its server has it: it goes; false if it can't be removed.
    bool Remove();

    /// Its server has it, and it stays. False if that can't be noted.
    bool MarkSent();

private:
    std::unique_ptr<os::HeldFile> mpFile;
    std::string mName;  // the path that it gets back
    std::string mPath;  // empty without a claim
};

/// The directory of an application's dumps, which is kept within the bounds that the configuration sets. A
/// dump is a regular file there whose name is a GUID and ".dmp"; while a sender has it, the GUID and
/// ".sending.dmp". A line at its end says that its server has it. The files that go with its report lie in a
/// directory, the GUID and ".attachments", which counts as a part of it. Whatever else lies there, and dumps
/// of other users, is left alone.
///
/// Whoever writes a dump, or sends it, holds its file, and nobody removes or sends what another one holds:
/// any number of threads and processes may work on one directory.
class ZBASE_API CrashStore {
public:
    /// `settings` are those of "crash_report.ini": `max_dumps`, `max_dump_megabytes`, `max_age_days`. The
    /// directory need not exist.
    CrashStore(const std::string& directory, const CrashConfigTable& settings);
    ~CrashStore();
    CrashStore(const CrashStore&) = delete;
    CrashStore& operator=(const CrashStore&) = delete;

    /// Removes the dumps that are too old, and then the oldest of those that are too many or, together, too
    /// large. Gives how many were removed. The dump of the path `without` counts as gone already.
    unsigned int Trim(const std::string& without = std::string());

    /// The names of the dumps, the oldest first. A dump is as old as its last change.
    std::vector<std::string> Dumps() const;

    /// Whether the server of this dump is known to have it.
    bool IsSent(const std::string& name) const;

    /// Whether there is a dump that nobody is known to have sent.
    bool HasUnsent() const;

    /// Only one process at a time sends what was left here by itself: false if there is another one, or no
    /// directory. Lasts until the end of the object.
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
