#pragma once

#include <string>

namespace ZBase::os {

/// Whether a server says that it takes requests that gzip packed: its answer to OPTIONS has `Accept-Encoding:
/// gzip`. Waits 3 seconds for the answer. `certificates` is a file; empty for the system's.
bool TakesGzip(const std::string& url, const std::string& certificates);

}  // namespace ZBase::os
