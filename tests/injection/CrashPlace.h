#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace test {

/// A folder with a configuration and the dumps of earlier crashes.
class CrashPlace {
public:
    static constexpr const char* kGuids[] = {"01234567-89ab-cdef-0123-456789abcdef",
                                             "11234567-89ab-cdef-0123-456789abcdef"};

    explicit CrashPlace(const std::string& server = "http://127.0.0.1:9/") {
        std::filesystem::create_directories(Dumps());
        std::filesystem::create_directory(Temporary());
        std::ofstream(Config())
            << "[Config]\nServerURL=" << server << "dev\nServerProdURL=" << server << "prod\n"
            << "dump_path=" << Dumps() << "\nsend_left=false\nattachment_log=" << mFolder
            << "/server.log\n[CrashKeys]\nproduct=a server with a long name for its product\n";
        setenv("ZENT_CRASH_CONFIG_FILE", Config().c_str(), 1);
    }
    ~CrashPlace() {
        unsetenv("ZENT_CRASH_CONFIG_FILE");
        std::filesystem::remove_all(mFolder);
    }
    CrashPlace(const CrashPlace&) = delete;
    CrashPlace& operator=(const CrashPlace&) = delete;

    std::string Config() const { return mFolder + "/crash_report.ini"; }
    std::string Dumps() const { return mFolder + "/a folder for the dumps"; }
    std::string Temporary() const { return mFolder + "/temporary files"; }
    std::string Dump(const std::string& guid) const { return Dumps() + "/" + guid + ".dmp"; }

    void LeaveDumps() const {
        for (const char* guid : kGuids) {
            std::ofstream(Dump(guid)) << "MDMP and so on";
            std::filesystem::create_directory(Dumps() + "/" + guid + ".attachments");
            std::ofstream(Dumps() + "/" + guid + ".attachments/log") << "a line";
        }
    }

private:
    // The same each time: the C library keeps each value that a variable has had.
    std::string mFolder = "/tmp/zbase-injection-" + std::to_string(getpid());
};

}  // namespace test
