// crash-receiver: a report server for development. It takes crash reports as the library sends them, writes
// each as NUMBER.dmp and NUMBER.keys (a line "name=value" for each crash key) into a directory, and answers
// with the number.
//
//   crash-receiver DIRECTORY [PORT [CERTIFICATE KEY]]
//
// It listens on this machine only, and prints the address; port 0, the default, is one that is free. With a
// certificate and its key, PEM files both, it speaks HTTPS.

#include <httplib.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr char kDumpField[] = "upload_file_minidump";
constexpr std::size_t kLargestReport = std::size_t{1} << 30;

class Store {
public:
    explicit Store(fs::path directory) : mDirectory(std::move(directory)) {}

    // Gives the number of the report.
    std::string Add(const httplib::MultipartFormDataMap& fields) {
        const std::string number = std::to_string(++mReports);
        std::ofstream keys(mDirectory / (number + ".keys"), std::ios::binary);
        for (const auto& [name, field] : fields) {
            if (name == kDumpField) {
                std::ofstream(mDirectory / (number + ".dmp"), std::ios::binary) << field.content;
            } else {
                keys << name << '=' << field.content << '\n';
            }
        }
        return number;
    }

private:
    fs::path mDirectory;
    std::atomic<int> mReports = 0;
};

int Serve(httplib::Server& server, const char* scheme, int port, Store& store) {
    server.set_payload_max_length(kLargestReport);
    server.Post(".*", [&store](const httplib::Request& request, httplib::Response& response) {
        if (!request.has_file(kDumpField)) {
            response.status = 400;
            response.set_content("no dump\n", "text/plain");
            return;
        }
        const std::string number = store.Add(request.files);
        std::printf("report %s\n", number.c_str());
        std::fflush(stdout);
        response.set_content(number, "text/plain");
    });
    const bool bound = port == 0 ? (port = server.bind_to_any_port("127.0.0.1")) > 0
                                 : server.bind_to_port("127.0.0.1", port);
    if (!bound) {
        std::fprintf(stderr, "crash-receiver: the port is taken\n");
        return 1;
    }
    std::printf("%s://127.0.0.1:%d/\n", scheme, port);
    std::fflush(stdout);
    return server.listen_after_bind() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc == 4 || argc > 5) {
        std::fprintf(stderr, "usage: crash-receiver DIRECTORY [PORT [CERTIFICATE KEY]]\n");
        return 2;
    }
    Store store(argv[1]);
    const int port = argc > 2 ? std::atoi(argv[2]) : 0;
    if (argc < 5) {
        httplib::Server server;
        return Serve(server, "http", port, store);
    }
    httplib::SSLServer server(argv[3], argv[4]);
    if (!server.is_valid()) {
        std::fprintf(stderr, "crash-receiver: the certificate or its key can't be used\n");
        return 1;
    }
    return Serve(server, "https", port, store);
}
