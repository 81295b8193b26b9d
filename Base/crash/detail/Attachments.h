#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/frame/WideLiteral.h>

#include <string>

namespace ZBase::detail {

// Files that go with a report, such as the end of a log. A setting "attachment_NAME" names each. What they
// held when the process crashed lies beside the dump, in a directory "GUID.attachments", one file for each
// setting, and goes when the dump goes.

inline constexpr char kAttachmentsEnding[] = ".attachments";

inline bool IsAttachment(const WideString& setting) {
    using namespace Literals;
    return setting.starts_with("attachment_"_w);
}

/// The directory of a dump's attachments, whether somebody is sending the dump or not.
inline std::string AttachmentsOf(const std::string& dump) {
    for (const std::string ending : {".sending.dmp", ".dmp"}) {
        if (dump.ends_with(ending)) return dump.substr(0, dump.size() - ending.size()) + kAttachmentsEnding;
    }
    return dump + kAttachmentsEnding;
}

}  // namespace ZBase::detail
