#pragma once

#include <map>
#include <string>

namespace ZBase::os {

using UploadFields = std::map<std::string, std::string>;

/// Posts `parameters` and `files` (name of the form field, path) as a multipart form. Gives the status that
/// the server answers, or 0 if there was none. `answer` is the body, at most 64 KiB of it, which is kept for
/// a status below 400 and waited for 2 seconds; for a null it is not waited for at all. Waits 10 seconds for
/// a connection and 60 for all. With files of 1 MiB and more the server is asked first, for 3 seconds,
/// whether it takes the form packed by gzip.
long PostForm(const std::string& url, const UploadFields& parameters, const UploadFields& files,
              std::string* answer);

}  // namespace ZBase::os
