#include <Base/crash/CrashStore.h>
#include <Base/crash/detail/Attachments.h>
#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/files/HeldFile.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

namespace ZBase {

namespace {

namespace fs = std::filesystem;

using detail::kDumpEnding;
using detail::kSendingEnding;
constexpr std::size_t kGuidLength = 36;
constexpr long long kDay = 86400;  // in seconds

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

// The GUID of a name with this ending; empty for another.
std::string GuidOf(const std::string& name, const std::string& ending) {
    const std::string guid = name.substr(0, kGuidLength);
    return IsGuid(guid) && name.substr(kGuidLength) == ending ? guid : "";
}

std::string GuidOfDump(const std::string& name) {
    const std::string guid = GuidOf(name, kDumpEnding);
    return guid.empty() ? GuidOf(name, kSendingEnding) : guid;
}

std::string WithoutEnding(const std::string& name, const std::string& ending) {
    return name.ends_with(ending) ? name.substr(0, name.size() - ending.size()) : "";
}

// False with `errno`.
bool Rename(const std::string& from, const std::string& to) {
    std::error_code failed;
    if (fs::exists(fs::symlink_status(to, failed))) {
        errno = EEXIST;
        return false;
    }
    fs::rename(from, to, failed);
    if (failed) errno = failed.default_error_condition().value();
    return !failed;
}

// The standard's ways through a directory end the process when there is no memory.
void RemoveAttachments(const std::string& place) {
    os::HeldFile directory;
    if (!directory.HoldDirectory(place) || !directory.IsOwn()) return;
    std::vector<std::string> files;
    os::VisitFiles(place, [&](const os::FileEntry& file) { files.push_back(place + "/" + file.name); });
    std::error_code failed;
    for (const std::string& file : files) fs::remove(file, failed);
    fs::remove(place, failed);
}

// Files left without a dump are deleted. A sender may rename the dump meanwhile, and back.
bool HasDump(const std::string& stem) {
    std::error_code failed;
    return fs::exists(stem + kDumpEnding, failed) || fs::exists(stem + kSendingEnding, failed) ||
           fs::exists(stem + kDumpEnding, failed);
}

void RemoveLostAttachments(const std::string& directory) {
    std::vector<std::string> lost;
    os::VisitDirectories(directory, [&](const char* name) {
        const std::string guid = GuidOf(name, detail::kAttachmentsEnding);
        if (!guid.empty() && !HasDump(directory + "/" + guid)) lost.push_back(directory + "/" + name);
    });
    for (const std::string& place : lost) RemoveAttachments(place);
}

// A dump that stays keeps its attachments. Those that a dump leaves behind are lost ones, and found as such.
bool RemoveDump(const std::string& dump) {
    const std::string attachments = detail::AttachmentsOf(dump);
    std::error_code failed;
    if (!fs::remove(dump, failed)) return false;
    RemoveAttachments(attachments);
    return true;
}

unsigned long long OctetsOfAttachments(const fs::path& dump) {
    unsigned long long octets = 0;
    os::VisitFiles(detail::AttachmentsOf(dump.string()),
                   [&](const os::FileEntry& file) { octets += file.octets; });
    return octets;
}

}  // namespace

ClaimedDump::ClaimedDump() = default;

// Without memory it keeps the name that it has here; its claim ends all the same.
ClaimedDump::~ClaimedDump() {
    try {
        if (!mPath.empty()) Rename(mPath, mName);
    } catch (const std::bad_alloc&) {
    }
}

bool ClaimedDump::Claim(const std::string& path) {
    if (!mPath.empty()) return false;
    const std::string claimed = WithoutEnding(path, kSendingEnding);
    const std::string stem = claimed.empty() ? WithoutEnding(path, kDumpEnding) : claimed;
    if (stem.empty()) return false;
    // What it is called by comes before it is, and what holds it goes when there is no memory.
    std::string name = stem + kDumpEnding;
    std::string sending = stem + kSendingEnding;
    auto file = std::make_unique<os::HeldFile>();
    if (!file->Hold(path) || (claimed.empty() && !Rename(path, sending))) return false;
    mpFile = std::move(file);
    mName.swap(name);
    mPath.swap(sending);
    return true;
}

bool ClaimedDump::Remove() {
    if (mPath.empty() || !RemoveDump(mPath)) return false;
    mPath.clear();
    return true;
}

bool ClaimedDump::MarkSent() {
    if (mPath.empty()) return false;
    std::ofstream file(mPath, std::ios::binary | std::ios::app);
    file << os::kSentMark;
    file.close();
    return !file.fail();
}

struct CrashStore::Entry {
    std::string name;
    unsigned long long octets;
    long long changed;  // in seconds since 1970
    unsigned int nanoseconds;
};

CrashStore::CrashStore(const std::string& directory, const CrashConfigTable& settings)
    : mDirectory(directory),
      mpSender(std::make_unique<os::HeldFile>()),
      mMaxDumps(detail::NumberSetting<"max_dumps">(settings)),
      mMaxOctets(detail::NumberSetting<"max_dump_megabytes">(settings) * (1ULL << 20)),
      mMaxAgeDays(detail::NumberSetting<"max_age_days">(settings)) {}

CrashStore::~CrashStore() = default;

unsigned int CrashStore::Trim(const std::string& without) {
    RemoveLostAttachments(mDirectory);
    std::vector<Entry> entries = Entries();
    // Those of other users can't be removed; if they counted, one's own would go in their place.
    std::erase_if(entries, [&](const Entry& entry) {
        const std::string path = (fs::path(mDirectory) / entry.name).string();
        return path == without || !os::IsOwnFile(path);
    });
    unsigned long long octets = 0;
    for (const Entry& entry : entries) octets += entry.octets;
    const long long oldest =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()) - kDay * mMaxAgeDays;
    unsigned int removed = 0;
    for (const Entry& entry : entries) {
        const bool isOld = mMaxAgeDays != 0 && entry.changed < oldest;
        const bool isTooMany = mMaxDumps != 0 && entries.size() - removed > mMaxDumps;
        const bool isTooMuch = mMaxOctets != 0 && octets > mMaxOctets;
        if (!isOld && !isTooMany && !isTooMuch) break;  // the following ones are younger
        if (!Remove(entry)) continue;
        ++removed;
        octets -= entry.octets;
    }
    return removed;
}

std::vector<std::string> CrashStore::Dumps() const {
    std::vector<std::string> names;
    for (const Entry& entry : Entries()) names.push_back(entry.name);
    return names;
}

bool CrashStore::IsSent(const std::string& name) const {
    constexpr std::streamoff kSize = sizeof os::kSentMark - 1;
    char end[kSize] = {};
    std::ifstream file(fs::path(mDirectory) / name, std::ios::binary);
    return file.seekg(-kSize, std::ios::end).read(end, kSize) && std::memcmp(end, os::kSentMark, kSize) == 0;
}

bool CrashStore::HasUnsent() const {
    const std::vector<Entry> entries = Entries();
    return std::any_of(entries.begin(), entries.end(),
                       [this](const Entry& entry) { return !IsSent(entry.name); });
}

bool CrashStore::BecomeSender() {
    return mpSender->HoldDirectory(mDirectory);
}

// Oldest first.
std::vector<CrashStore::Entry> CrashStore::Entries() const {
    std::vector<Entry> entries;
    os::VisitFiles(mDirectory, [&](const os::FileEntry& file) {
        if (!GuidOfDump(file.name).empty())
            entries.push_back({file.name, file.octets + OctetsOfAttachments(fs::path(mDirectory) / file.name),
                               file.changed, file.nanoseconds});
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
    return file.Hold(path.string()) && file.IsOwn() && RemoveDump(path.string());
}

}  // namespace ZBase
