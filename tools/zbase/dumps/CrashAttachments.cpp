#include "CrashAttachments.h"
#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/Attachments.h>

#include <cstring>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using ZBase::CrashConfigTable;
using ZBase::detail::kMissingAttachmentsField;

constexpr std::size_t kLongestName = 200;

// Quotes, slashes and characters that are not printable ASCII become "%" and two digits.
std::string SafeName(const std::string& name) {
    std::string safe;
    for (const char letter : name) {
        const bool isPlain = letter > ' ' && letter <= '~' && std::strchr("\"/%", letter) == nullptr;
        const auto octet = static_cast<unsigned char>(letter);
        safe += isPlain ? std::string(1, letter) : "%" + Hex(octet, 2);
    }
    return safe;
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
    const std::string obstacle = MakePrivateDirectory(place.string());
    if (!obstacle.empty()) return "all: " + obstacle;
    const std::uint64_t most = std::uint64_t{ZBase::detail::NumberSetting<"attachment_megabytes">(settings)}
                               << 20;
    std::string missing;
    for (const CrashAttachment& attachment : attachments) {
        std::string why = attachment.obstacle;
        if (why.empty()) why = CopyEnd(attachment.file.string(), (place / attachment.name).string(), most);
        if (!why.empty()) missing += (missing.empty() ? "" : "; ") + attachment.name + ": " + why;
    }
    if (!missing.empty()) std::ofstream(place / kMissingAttachmentsField, std::ios::binary) << missing;
    return missing;
}

void AddAttachments(const fs::path& dump, ZBase::CrashReportSender::Fields& parameters,
                    ZBase::CrashReportSender::Fields& files) {
    const fs::path place = ZBase::detail::AttachmentsOf(dump.string());
    if (!IsOwnDirectory(place.string())) return;
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
