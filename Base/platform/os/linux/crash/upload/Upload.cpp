#include <Base/platform/os/crash/Upload.h>
#include <Base/platform/os/linux/crash/upload/AcceptedEncoding.h>
#include <Base/platform/os/linux/crash/upload/CompressedForm.h>
#include <Base/platform/os/processes/Environment.h>

#include <common/linux/http_upload.h>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace ZBase::os {

namespace {

using google_breakpad::HTTPUpload;

constexpr std::uintmax_t kWorthAQuestion = std::uintmax_t{1} << 20;

// libcurl takes the proxy from the environment, but only its command takes the certificates.
std::string CertificateFile() {
    for (const char* name : {"CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
        const char* file = GetNarrowEnvironment(name);
        if (file != nullptr && *file != 0) return file;
    }
    return "";
}

// An unreadable file counts as empty here: posting it fails.
std::uintmax_t SizeOf(const UploadFields& files) {
    std::uintmax_t size = 0;
    for (const auto& [name, path] : files) {
        std::error_code error;
        const std::uintmax_t one = std::filesystem::file_size(path, error);
        if (!error) size += one;
    }
    return size;
}

// Posts the form with this body, or of `parameters` and `files`.
long Post(const std::string& url, const UploadFields& parameters, const UploadFields& files,
          std::string* answer, const HTTPUpload::Body* body) {
    long status = 0;
    std::string error;
    HTTPUpload::SendRequest(url, parameters, files, "", "", CertificateFile(), answer, &status, &error, body);
    return status;
}

std::optional<HTTPUpload::Body> Compress(const std::string& url, const UploadFields& parameters,
                                         const UploadFields& files) {
    if (SizeOf(files) < kWorthAQuestion || !TakesGzip(url, CertificateFile())) return std::nullopt;
    std::optional<CompressedForm> form = CompressForm(parameters, files);
    if (!form) return std::nullopt;
    return HTTPUpload::Body{
        std::move(form->octets),
        {{"Content-Encoding", "gzip"}, {"Content-Type", "multipart/form-data; boundary=" + form->boundary}}};
}

}  // namespace

long PostForm(const std::string& url, const UploadFields& parameters, const UploadFields& files,
              std::string* answer) {
    if (const auto body = Compress(url, parameters, files)) {
        const long status = Post(url, parameters, files, answer, &*body);
        // A rejection may be one of the compression, whatever the server replied before.
        if (status < 400 || status >= 500) return status;
        if (answer != nullptr) answer->clear();
    }
    return Post(url, parameters, files, answer, nullptr);
}

}  // namespace ZBase::os
