#pragma once

#include <Base/crash/detail/CrashContract.h>

#include <string>

namespace ZBase::detail {

// Files sent with a report, such as the end of a log. A setting "attachment_NAME" names each. Their content
// at the crash is beside the dump, in a directory "GUID.attachments", one file for each setting, and is
// deleted with the dump.

/// The directory of a dump's attachments, whether it is being sent or not.
inline std::string AttachmentsOf(const std::string& dump) {
    for (const std::string_view ending : {kSendingEnding, kDumpEnding}) {
        if (dump.ends_with(ending)) return dump.substr(0, dump.size() - ending.size()) + kAttachmentsEnding;
    }
    return dump + kAttachmentsEnding;
}

}  // namespace ZBase::detail
