#pragma once

#include <string>
#include <string_view>

namespace ZBase::os {

/// The texts of a multipart form (RFC 7578) between the values, as browsers write them.
struct MultipartForm {
    std::string boundary;

    std::string FieldHead(std::string_view name) const;

    /// `path` may end in a file's name with directories before it; only the name is sent.
    std::string FileHead(std::string_view name, std::string_view path) const;

    std::string End() const;
};

}  // namespace ZBase::os
