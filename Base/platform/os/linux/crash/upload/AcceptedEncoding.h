#pragma once

#include <string>

namespace ZBase::os {

/// Whether a server accepts requests compressed by gzip: its reply to OPTIONS has `Accept-Encoding: gzip`.
/// Waits 3 seconds for the reply. `certificates` is a file; empty for the system's.
bool TakesGzip(const std::string& url, const std::string& certificates);

}  // namespace ZBase::os
