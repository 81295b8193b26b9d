#include <Base/platform/os/linux/crash/upload/AcceptedEncoding.h>

#include <dlfcn.h>
#include <third_party/curl/curl.h>
#include <cstddef>
#include <string_view>

namespace ZBase::os {

namespace {

constexpr long kSeconds = 3;

/// The used part of libcurl, opened as Breakpad opens it to post: programs that load the library don't need
/// it.
struct Curl {
    Curl() {
        for (const char* name : {"libcurl.so", "libcurl.so.4", "libcurl-gnutls.so.4"}) {
            if (library == nullptr) library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
        }
        isThere = library != nullptr && Find("curl_easy_init", open) && Find("curl_easy_setopt", set) &&
                  Find("curl_easy_perform", perform) && Find("curl_easy_getinfo", get) &&
                  Find("curl_easy_cleanup", close);
    }
    ~Curl() {
        if (library != nullptr) dlclose(library);
    }
    Curl(const Curl&) = delete;
    Curl& operator=(const Curl&) = delete;

    template <class Function>
    bool Find(const char* name, Function& function) const {
        function = reinterpret_cast<Function>(dlsym(library, name));
        return function != nullptr;
    }

    void* library = nullptr;
    bool isThere = false;
    CURL* (*open)() = nullptr;
    CURLcode (*set)(CURL*, CURLoption, ...) = nullptr;
    CURLcode (*perform)(CURL*) = nullptr;
    CURLcode (*get)(CURL*, CURLINFO, ...) = nullptr;
    void (*close)(CURL*) = nullptr;
};

char Lower(char octet) {
    return octet >= 'A' && octet <= 'Z' ? static_cast<char>(octet - 'A' + 'a') : octet;
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t start = text.find_first_not_of(kBlanks);
    if (start == std::string_view::npos) return {};
    return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

// A weight of zero means no.
bool IsYes(std::string_view parameters) {
    const std::size_t at = parameters.find("q=");
    return at == std::string_view::npos ||
           parameters.substr(at + 2).find_first_of("123456789") != std::string_view::npos;
}

// A line of the head, in lower case. Later lines may continue earlier ones.
bool NamesGzip(std::string_view line) {
    constexpr std::string_view kName = "accept-encoding:";
    if (!line.starts_with(kName)) return false;
    line.remove_prefix(kName.size());
    for (std::size_t end = 0; end != std::string_view::npos;
         line.remove_prefix(end == std::string_view::npos ? 0 : end + 1)) {
        end = line.find(',');
        const std::string_view coding = line.substr(0, end);
        const std::size_t parameters = coding.find(';');
        if (Trimmed(coding.substr(0, parameters)) != "gzip") continue;
        return parameters == std::string_view::npos || IsYes(coding.substr(parameters));
    }
    return false;
}

std::size_t TakeHeader(char* octets, std::size_t size, std::size_t count, void* takesGzip) {
    std::string line(octets, size * count);
    for (char& octet : line) octet = Lower(octet);
    if (line.starts_with("http/"))  // what came before is a proxy's, or an interim response
        *static_cast<bool*>(takesGzip) = false;
    else if (NamesGzip(line))
        *static_cast<bool*>(takesGzip) = true;
    return size * count;
}

}  // namespace

bool TakesGzip(const std::string& url, const std::string& certificates) {
    const Curl curl;
    CURL* const handle = curl.isThere ? curl.open() : nullptr;
    if (handle == nullptr) return false;
    bool takesGzip = false;
    curl.set(handle, CURLOPT_URL, url.c_str());
    curl.set(handle, CURLOPT_CUSTOMREQUEST, "OPTIONS");
    curl.set(handle, CURLOPT_NOBODY, 1L);
    curl.set(handle, CURLOPT_NOSIGNAL, 1L);
    curl.set(handle, CURLOPT_TIMEOUT, kSeconds);
    if (!certificates.empty()) curl.set(handle, CURLOPT_CAINFO, certificates.c_str());
    curl.set(handle, CURLOPT_HEADERFUNCTION, &TakeHeader);
    curl.set(handle, CURLOPT_HEADERDATA, &takesGzip);
    const bool isAnswered = curl.perform(handle) == CURLE_OK;
    long status = 0;
    curl.get(handle, CURLINFO_RESPONSE_CODE, &status);
    curl.close(handle);
    return isAnswered && status >= 200 && status < 300 && takesGzip;
}

}  // namespace ZBase::os
