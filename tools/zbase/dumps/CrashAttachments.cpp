#include "CrashAttachments.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/Attachments.h>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using ZBase::CrashConfigTable;
using ZBase::detail::kMissingAttachmentsField;

constexpr std::size_t kLongestName = 200;

/// A descriptor, closed at the end.
class File {
public:
    File(const char* path, int flags) : mDescriptor(open(path, flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {}
    ~File() {
        if (mDescriptor >= 0) close(mDescriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return mDescriptor >= 0; }
    int Descriptor() const { return mDescriptor; }

private:
    int mDescriptor;
};

// What is not printable ASCII, a quote or a slash becomes "%" and two digits.
std::string SafeName(const std::string& name) {
    std::string safe;
    for (const char letter : name) {
        const bool isPlain = letter > ' ' && letter <= '~' && std::strchr("\"/%", letter) == nullptr;
        const auto octet = static_cast<unsigned char>(letter);
        safe += isPlain ? std::string(1, letter) : "%" + Hex(octet, 2);
    }
    return safe;
}

bool HasRightsOfAnother() {
    return getauxval(AT_SECURE) != 0 || geteuid() != getuid() || getegid() != getgid();
}

ssize_t ReadSome(const File& file, char* room, std::size_t size) {
    for (;;) {
        const ssize_t count = read(file.Descriptor(), room, size);
        if (count >= 0 || errno != EINTR) return count;
    }
}

bool WriteAll(const File& file, const char* octets, std::size_t size) {
    for (std::size_t done = 0; done != size;) {
        const ssize_t count = write(file.Descriptor(), octets + done, size - done);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return true;
}

// Some files of the system say that they are empty and are not. Others grow while they are read.
bool Copy(const File& from, const File& to, off_t size, off_t most) {
    char piece[65536];
    if (size > most && lseek(from.Descriptor(), -most, SEEK_END) < 0) return false;
    for (off_t left = most; left > 0;) {
        const ssize_t count =
            ReadSome(from, piece, std::min<std::size_t>(sizeof piece, static_cast<std::size_t>(left)));
        if (count <= 0) return count == 0;
        if (!WriteAll(to, piece, static_cast<std::size_t>(count))) return false;
        left -= count;
    }
    return true;
}

// Why the end of a file could not be copied; empty if it was.
std::string CopyEnd(const fs::path& file, const fs::path& copy, off_t most) {
    // A pipe that nobody writes to would hold the report.
    const File from(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (!from.IsOpen() || fstat(from.Descriptor(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "no regular file";
    const File to(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (to.IsOpen() && Copy(from, to, status.st_size, most)) return "";
    std::string why = std::strerror(errno);
    unlink(copy.c_str());
    return why;
}

// Ours, and no link.
bool IsOwnDirectory(const fs::path& place) {
    struct stat status {};
    return lstat(place.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

}  // namespace

std::vector<CrashAttachment> AttachmentsIn(const CrashConfigTable& settings) {
    const unsigned int most = ZBase::detail::NumberSetting<"max_attachments">(settings);
    std::vector<CrashAttachment> attachments;
    for (const auto& [key, value] : settings) {
        if (!ZBase::detail::IsAttachment(key)) continue;
        CrashAttachment attachment{SafeName(Narrow(key.c_str())), Narrow(value.c_str()), ""};
        if (attachment.name.size() > kLongestName) {
            attachment.name.resize(kLongestName);
            attachment.obstacle = "its name is too long";
        } else if (attachments.size() >= most) {
            attachment.obstacle = "more than max_attachments";
        } else if (attachment.file.empty()) {
            attachment.obstacle = "names no file";
        }
        attachments.push_back(attachment);
    }
    return attachments;
}

std::string KeepAttachments(const fs::path& dump, const CrashConfigTable& settings) {
    const std::vector<CrashAttachment> attachments = AttachmentsIn(settings);
    if (attachments.empty()) return "";
    if (HasRightsOfAnother()) return "all: the program has the rights of another user";
    const fs::path place = ZBase::detail::AttachmentsOf(dump.string());
    if (mkdir(place.c_str(), S_IRWXU) != 0) return std::string("all: ") + std::strerror(errno);
    const off_t most = off_t{ZBase::detail::NumberSetting<"attachment_megabytes">(settings)} << 20;
    std::string missing;
    for (const CrashAttachment& attachment : attachments) {
        std::string why = attachment.obstacle;
        if (why.empty()) why = CopyEnd(attachment.file, place / attachment.name, most);
        if (!why.empty()) missing += (missing.empty() ? "" : "; ") + attachment.name + ": " + why;
    }
    if (!missing.empty()) std::ofstream(place / kMissingAttachmentsField, std::ios::binary) << missing;
    return missing;
}

void AddAttachments(const fs::path& dump, ZBase::CrashReportSender::Fields& parameters,
                    ZBase::CrashReportSender::Fields& files) {
    const fs::path place = ZBase::detail::AttachmentsOf(dump.string());
    if (!IsOwnDirectory(place)) return;
    std::error_code failed;
    for (fs::directory_iterator at(place, failed), end; !failed && at != end; at.increment(failed)) {
        std::error_code none;
        if (at->symlink_status(none).type() != fs::file_type::regular) continue;
        const std::string name = at->path().filename().string();
        if (name == kMissingAttachmentsField)
            parameters.try_emplace(Wide(name), Wide(ReadFile(at->path().string())));
        else
            files.try_emplace(Wide(name), Wide(at->path().string()));
    }
}

void RemoveAttachments(const fs::path& dump) {
    std::error_code ignored;
    fs::remove_all(ZBase::detail::AttachmentsOf(dump.string()), ignored);
}
