#pragma once

#include <Base/crash/detail/CrashContract.h>

#include <string>

namespace ZBase::detail {

// Files that go with a report, such as the end of a log. A setting "attachment_NAME" names each. What they
// held when the process crashed lies beside the dump, in a directory "GUID.attachments", one file for each
// setting, and goes when the dump goes.

/// The directory of a dump's attachments, whether somebody is sending the dump or not.
inline std::string AttachmentsOf(const std::string& dump) {
    for (const std::string_view ending : {kSendingEnding, kDumpEnding}) {
        if (dump.ends_with(ending)) return dump.substr(0, dump.size() - ending.size()) + kAttachmentsEnding;
    }
    return dump + kAttachmentsEnding;
}

}  // namespace ZBase::detail
