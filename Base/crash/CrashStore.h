#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/frame/Api.h>

#include <string>
#include <vector>

namespace ZBase {

/// The directory of an application's dumps, which is kept within the bounds that the configuration sets. A
/// dump is a regular file there whose name is a GUID and ".dmp"; while a sender has it, the GUID and
/// ".sending.dmp". An empty file "GUID.sent" beside it says that its server has it. Whatever else lies there
/// is left alone.
///
/// Whoever writes a dump, or sends it, holds its file, and nobody removes or sends what another one holds:
/// any number of threads and processes may work on one directory.
class ZBASE_API CrashStore {
public:
    /// `settings` are those of "crash_report.ini": `max_dumps`, `max_dump_megabytes`, `max_age_days`. The
    /// directory need not exist.
    CrashStore(const std::string& directory, const CrashConfigTable& settings);

    /// Removes the dumps that are too old, and then the oldest of those that are too many or, together, too
    /// large. Gives how many were removed. The dump of the path `without` counts as gone already.
    unsigned int Trim(const std::string& without = std::string());

    /// The names of the dumps, the oldest first. A dump is as old as its last change.
    std::vector<std::string> Dumps() const;

    /// Whether the server of this dump is known to have it.
    bool IsSent(const std::string& name) const;

private:
    struct Entry;
    std::vector<Entry> Entries() const;
    bool Remove(const Entry& entry);
    void RemoveLoneMarks() const;

    std::string mDirectory;
    unsigned long long mMaxDumps;   // 0: any number
    unsigned long long mMaxOctets;  // of all dumps; 0: any number
    unsigned int mMaxAgeDays;       // 0: any age
};

}  // namespace ZBase
