#pragma once

#include <Base/ZBase.h>

#include <filesystem>
#include <string>
#include <vector>

// Files that the configuration names and that go with the report of a crash.

struct CrashAttachment {
    std::string name;  // its setting, as a form and a directory can hold it
    std::filesystem::path file;
    std::string obstacle;  // why it can't go along, whatever the file is; else empty
};

/// In the order of their settings' names.
std::vector<CrashAttachment> AttachmentsIn(const ZBase::CrashConfigTable& settings);

/// Copies the end of each file beside the dump: at most `attachment_megabytes` of each of at most
/// `max_attachments`. Gives what could not be copied and why, which is kept there too; empty if all could.
/// A program with the rights of another user has no attachments: who starts it chooses the configuration.
std::string KeepAttachments(const std::filesystem::path& dump, const ZBase::CrashConfigTable& settings);

/// Adds what was kept beside a dump to its report. A parameter that is there already stays.
void AddAttachments(const std::filesystem::path& dump, ZBase::CrashReportSender::Fields& parameters,
                    ZBase::CrashReportSender::Fields& files);

/// Removes what was kept beside a dump.
void RemoveAttachments(const std::filesystem::path& dump);
