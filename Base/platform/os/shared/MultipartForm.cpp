#include <Base/platform/os/shared/MultipartForm.h>

namespace ZBase::os {

namespace {

#ifdef _WIN32
constexpr char kSeparators[] = "\\/";
#else
constexpr char kSeparators[] = "/";
#endif

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char octet : text) {
        if (octet == '"')
            quoted += "%22";
        else if (octet == '\r')
            quoted += "%0D";
        else if (octet == '\n')
            quoted += "%0A";
        else
            quoted += octet;
    }
    return quoted + '"';
}

std::string Disposition(const std::string& boundary, std::string_view name) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=" + Quoted(name);
}

}  // namespace

std::string MultipartForm::FieldHead(std::string_view name) const {
    return Disposition(boundary, name) + "\r\n\r\n";
}

std::string MultipartForm::FileHead(std::string_view name, std::string_view path) const {
    const std::string_view file = path.substr(path.find_last_of(kSeparators) + 1);
    return Disposition(boundary, name) + "; filename=" + Quoted(file) +
           "\r\nContent-Type: application/octet-stream\r\n\r\n";
}

std::string MultipartForm::End() const {
    return "--" + boundary + "--\r\n";
}

}  // namespace ZBase::os
