#include <Base/crash/CrashStore.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/Files.h>
#include <Base/platform/os/HeldFile.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <tuple>

namespace ZBase {

namespace {

namespace fs = std::filesystem;

constexpr char kDump[] = ".dmp";
constexpr char kSending[] = ".sending.dmp";
constexpr char kSent[] = ".sent";
constexpr std::size_t kGuidLength = 36;
constexpr long long kDay = 24 * 60 * 60;  // in seconds

bool IsGuid(const std::string& text) {
    if (text.size() != kGuidLength) return false;
    for (std::size_t i = 0; i != kGuidLength; ++i) {
        const bool isDash = i == 8 || i == 13 || i == 18 || i == 23;
        const char c = text[i];
        const bool isDigit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (isDash ? c != '-' : !isDigit) return false;
    }
    return true;
}

// The GUID of a name that ends so; empty for another.
std::string GuidOf(const std::string& name, const std::string& ending) {
    const std::string guid = name.substr(0, kGuidLength);
    return IsGuid(guid) && name.substr(kGuidLength) == ending ? guid : "";
}

std::string GuidOfDump(const std::string& name) {
    const std::string guid = GuidOf(name, kDump);
    return guid.empty() ? GuidOf(name, kSending) : guid;
}

}  // namespace

struct CrashStore::Entry {
    std::string name;
    unsigned long long octets;
    long long changed;  // in seconds since 1970
    unsigned int nanoseconds;
};

CrashStore::CrashStore(const std::string& directory, const CrashConfigTable& settings)
    : mDirectory(directory),
      mMaxDumps(CrashNumberOf(settings, "max_dumps"_w)),
      mMaxOctets(CrashNumberOf(settings, "max_dump_megabytes"_w) * (1ULL << 20)),
      mMaxAgeDays(CrashNumberOf(settings, "max_age_days"_w)) {}

unsigned int CrashStore::Trim(const std::string& without) {
    std::vector<Entry> entries = Entries();
    std::erase_if(
        entries, [&](const Entry& entry) { return (fs::path(mDirectory) / entry.name).string() == without; });
    unsigned long long octets = 0;
    for (const Entry& entry : entries) octets += entry.octets;
    const long long oldest =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()) - kDay * mMaxAgeDays;
    unsigned int removed = 0;
    for (const Entry& entry : entries) {
        const bool isOld = mMaxAgeDays != 0 && entry.changed < oldest;
        const bool isTooMany = mMaxDumps != 0 && entries.size() - removed > mMaxDumps;
        const bool isTooMuch = mMaxOctets != 0 && octets > mMaxOctets;
        if (!isOld && !isTooMany && !isTooMuch) break;  // what follows is younger
        if (!Remove(entry)) continue;
        ++removed;
        octets -= entry.octets;
    }
    RemoveLoneMarks();
    return removed;
}

std::vector<std::string> CrashStore::Dumps() const {
    std::vector<std::string> names;
    for (const Entry& entry : Entries()) names.push_back(entry.name);
    return names;
}

bool CrashStore::IsSent(const std::string& name) const {
    std::error_code none;
    const std::string guid = GuidOfDump(name);
    return !guid.empty() && fs::exists(fs::path(mDirectory) / (guid + kSent), none);
}

// The oldest first.
std::vector<CrashStore::Entry> CrashStore::Entries() const {
    std::vector<Entry> entries;
    os::VisitFiles(mDirectory, [&](const os::FileEntry& file) {
        if (!GuidOfDump(file.name).empty())
            entries.push_back({file.name, file.octets, file.changed, file.nanoseconds});
    });
    std::sort(entries.begin(), entries.end(), [](const Entry& one, const Entry& other) {
        return std::tie(one.changed, one.nanoseconds, one.name) <
               std::tie(other.changed, other.nanoseconds, other.name);
    });
    return entries;
}

bool CrashStore::Remove(const Entry& entry) {
    const fs::path path = fs::path(mDirectory) / entry.name;
    os::HeldFile file;
    std::error_code failed;
    return file.Hold(path.string()) && file.IsOwn() && fs::remove(path, failed);
}

// The mark of a dump that somebody has removed.
void CrashStore::RemoveLoneMarks() const {
    os::VisitFiles(mDirectory, [&](const os::FileEntry& file) {
        const std::string guid = GuidOf(file.name, kSent);
        std::error_code failed;
        const auto isThere = [&](const char* ending) {
            return fs::exists(fs::path(mDirectory) / (guid + ending), failed) || failed;
        };
        if (!guid.empty() && !isThere(kDump) && !isThere(kSending))
            fs::remove(fs::path(mDirectory) / file.name, failed);
    });
}

}  // namespace ZBase
