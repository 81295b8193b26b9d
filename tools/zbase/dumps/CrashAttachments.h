#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/CrashReportSender.h>

#include <filesystem>
#include <string>
#include <vector>

// Configured files that are sent with the report of a crash.

struct CrashAttachment {
    std::string name;  // its setting, valid in a form and as a file name
    std::filesystem::path file;
    std::string obstacle;  // why it can't be attached, whatever the file is; else empty
};

/// In the order of their settings' names.
std::vector<CrashAttachment> AttachmentsIn(const ZBase::CrashConfigTable& settings);

/// Copies the end of each file beside the dump: at most `attachment_megabytes` of each of at most
/// `max_attachments`. Gives what could not be copied and why, which is kept there too; empty if all could.
/// A program with the rights of another user has no attachments: who starts it chooses the configuration.
std::string KeepAttachments(const std::filesystem::path& dump, const ZBase::CrashConfigTable& settings);

/// Adds the attachments of a dump to its report. An existing parameter stays.
void AddAttachments(const std::filesystem::path& dump, ZBase::CrashReportSender::Fields& parameters,
                    ZBase::CrashReportSender::Fields& files);

/// Removes the attachments of a dump.
void RemoveAttachments(const std::filesystem::path& dump);
