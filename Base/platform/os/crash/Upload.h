#pragma once

#include <map>
#include <string>

namespace ZBase::os {

using UploadFields = std::map<std::string, std::string>;

/// Posts `parameters` and `files` (name of the form field, path) as a multipart form. Returns the server's
/// status, or 0 if there was none. `answer` gets the body, at most 64 KiB of it, for a status below 400, and
/// is waited for 2 seconds; null skips the body. Waits 10 seconds for a connection and 60 for all. With files
/// of 1 MiB and more the server is first queried, for 3 seconds, whether it takes the form compressed by
/// gzip.
long PostForm(const std::string& url, const UploadFields& parameters, const UploadFields& files,
              std::string* answer);

}  // namespace ZBase::os
