#pragma once

#include <optional>
#include <string>

#include <Base/platform/os/crash/Upload.h>

namespace ZBase::os {

/// The body of a multipart form, compressed by gzip.
struct CompressedForm {
    std::string boundary;  // between its parts
    std::string octets;
};

/// Empty if a file can't be read, there is no zlib, or the form stays larger than 128 MiB.
std::optional<CompressedForm> CompressForm(const UploadFields& parameters, const UploadFields& files);

}  // namespace ZBase::os
