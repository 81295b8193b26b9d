#include <Base/platform/os/Environment.h>
#include <Base/platform/os/Upload.h>

#include <common/linux/http_upload.h>

namespace ZBase::os {

namespace {

// libcurl takes the proxy from the environment by itself, the certificates only its command does.
std::string CertificateFile() {
    for (const char* name : {"CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
        const char* file = GetNarrowEnvironment(name);
        if (file != nullptr && *file != 0) return file;
    }
    return "";
}

}  // namespace

long PostForm(const std::string& url, const UploadFields& parameters, const UploadFields& files,
              std::string* answer) {
    long status = 0;
    std::string error;
    google_breakpad::HTTPUpload::SendRequest(url, parameters, files, "", "", CertificateFile(), answer,
                                             &status, &error);
    return status;
}

}  // namespace ZBase::os
