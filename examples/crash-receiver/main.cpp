// crash-receiver: a report server for development. It receives crash reports of the library, writes each as
// NUMBER.dmp and NUMBER.keys (a line "name=value" for each crash key) into a directory, with each attachment
// as NUMBER-NAME, and replies with the number once they are written; with 500 if that fails, so that the
// sender keeps its dump. Large reports may be compressed by gzip.
//
//   crash-receiver DIRECTORY [PORT [CERTIFICATE KEY]]
//
// It listens on this machine only, and prints the address; port 0, the default, is a free one. With a
// certificate and its key, PEM files both, it uses HTTPS, where it was built with OpenSSL.

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr char kUsage[] = "usage: crash-receiver DIRECTORY [PORT [CERTIFICATE KEY]]\n";
constexpr char kDumpField[] = "upload_file_minidump";
constexpr std::size_t kLargestReport = std::size_t{1} << 30;

class Store {
public:
    // Goes on behind the reports that are there.
    explicit Store(fs::path directory) : mDirectory(std::move(directory)) {
        for (const auto& entry : fs::directory_iterator(mDirectory)) {
            const std::string name = entry.path().filename().string();
            int number = 0;
            std::from_chars(name.data(), name.data() + name.size(), number);
            mReports = std::max(mReports.load(), number);
        }
    }

    // Returns the number of the report; empty if it could not be stored, and then all its files are removed.
    std::string Add(const httplib::MultipartFormDataMap& fields) {
        const std::string number = std::to_string(++mReports);
        std::string keys;
        std::vector<fs::path> files;
        bool isWhole = true;
        const auto store = [&](const std::string& name, const std::string& content) {
            files.push_back(mDirectory / (number + name));
            isWhole = isWhole && Write(files.back(), content);
        };
        for (const auto& [name, field] : fields) {
            if (name == kDumpField)
                store(".dmp", field.content);
            else if (!field.filename.empty())
                store("-" + FileName(name), field.content);
            else
                keys += name + '=' + field.content + '\n';
        }
        store(".keys", keys);
        if (isWhole) return number;
        std::error_code ignored;
        for (const fs::path& file : files) fs::remove(file, ignored);
        return "";
    }

private:
    // The name is from the network, and must not lead out of the directory.
    static std::string FileName(std::string name) {
        for (char& letter : name)
            if (std::strchr("/\\:", letter) != nullptr) letter = '_';
        return name;
    }

    static bool Write(const fs::path& path, const std::string& content) {
        std::ofstream file(path, std::ios::binary);
        file << content;
        file.close();
        return !file.fail();
    }

    fs::path mDirectory;
    std::atomic<int> mReports = 0;
};

int Serve(httplib::Server& server, const char* scheme, int port, Store& store) {
    server.set_payload_max_length(kLargestReport);
    // The reply to OPTIONS says that gzip is accepted; requests are decompressed before this handler.
    server.Options(".*", [](const httplib::Request&, httplib::Response& response) {
        response.status = 204;
        response.set_header("Allow", "OPTIONS, POST");
#ifdef CPPHTTPLIB_ZLIB_SUPPORT
        response.set_header("Accept-Encoding", "gzip");
#endif
    });
    server.Post(".*", [&store](const httplib::Request& request, httplib::Response& response) {
        if (!request.has_file(kDumpField)) {
            response.status = 400;
            response.set_content("no dump\n", "text/plain");
            return;
        }
        const std::string number = store.Add(request.files);
        if (number.empty()) {
            std::fprintf(stderr, "crash-receiver: a report can't be stored\n");
            response.status = 500;
            response.set_content("not stored\n", "text/plain");
            return;
        }
        const bool isPacked = request.get_header_value("Content-Encoding") == "gzip";
        std::printf("report %s%s\n", number.c_str(), isPacked ? " (packed)" : "");
        std::fflush(stdout);
        response.set_content(number, "text/plain");
    });
    const bool bound = port == 0 ? (port = server.bind_to_any_port("127.0.0.1")) > 0
                                 : server.bind_to_port("127.0.0.1", port);
    if (!bound) {
        std::fprintf(stderr, "crash-receiver: the port %d is taken, or not for this user\n", port);
        return 1;
    }
    std::printf("%s://127.0.0.1:%d/\n", scheme, port);
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}

bool ReadPort(const std::string& text, int& port) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, port);
    return result.ec == std::errc() && result.ptr == end && port >= 0 && port <= 65535;
}

int Refuse(const std::string& what) {
    std::fprintf(stderr, "crash-receiver: %s\n%s", what.c_str(), kUsage);
    return 2;
}

bool CanStoreIn(const fs::path& directory) {
    std::error_code none;
    const fs::path file = directory / ".crash-receiver";
    const bool isWritten = fs::is_directory(directory, none) && std::ofstream(file).is_open();
    fs::remove(file, none);
    return isWritten;
}

int ServeWithCertificate([[maybe_unused]] const std::vector<std::string>& arguments,
                         [[maybe_unused]] int port, [[maybe_unused]] Store& store) {
#ifdef CPPHTTPLIB_OPENSSL_SUPPORT
    httplib::SSLServer server(arguments[3].c_str(), arguments[4].c_str());
    if (server.is_valid()) return Serve(server, "https", port, store);
    std::fprintf(stderr, "crash-receiver: the certificate or its key can't be used\n");
#else
    std::fprintf(stderr, "crash-receiver: it was built without HTTPS\n");
#endif
    return 1;
}

int Run(const std::vector<std::string>& arguments) {
    const std::size_t count = arguments.size();
    if (count == 2 && (arguments[1] == "--help" || arguments[1] == "-h")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    for (std::size_t i = 1; i < count; ++i) {
        if (arguments[i].starts_with('-')) return Refuse("there is no option " + arguments[i]);
    }
    if (count < 2 || count == 4 || count > 5)
        return Refuse("a directory is wanted, and a key for a certificate");
    int port = 0;
    if (count > 2 && !ReadPort(arguments[2], port))
        return Refuse(arguments[2] + " is no port: a number from 0 to 65535 is");
    if (!CanStoreIn(arguments[1])) {
        std::fprintf(stderr, "crash-receiver: %s is no directory that can be written to\n",
                     arguments[1].c_str());
        return 1;
    }
    Store store(arguments[1]);
    if (count == 5) return ServeWithCertificate(arguments, port, store);
    httplib::Server server;
    return Serve(server, "http", port, store);
}

}  // namespace

#ifdef _WIN32
// Whose narrow arguments are in another encoding than paths.
int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    for (int i = 0; i < argc; ++i) arguments.push_back(fs::path(argv[i]).string());
    return Run(arguments);
}
#else
int main(int argc, char** argv) {
    return Run({argv, argv + argc});
}
#endif
