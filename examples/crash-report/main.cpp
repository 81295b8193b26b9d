// A server that crashes on purpose. It configures where reports go, adds crash keys, and installs the
// handler; from then on crashes are dumped and sent by themselves.
//
//   crash-report DIRECTORY ADDRESS     dumps into the directory, and sends to the address

#include <Base/ZBase.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

using namespace ZBase::Literals;

volatile int* volatile gpAccount = nullptr;

[[gnu::noinline]] void Pay() {
    *gpAccount = 1;  // null: no account was opened
    asm volatile("");
}

[[gnu::noinline]] void ServeRequest() {
    Pay();
    asm volatile("");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: crash-report DIRECTORY ADDRESS\n", stderr);
        return 2;
    }
    const std::string directory = argv[1];
    const std::string address = argv[2];
    const std::string file = directory + "/crash_report.ini";
    std::ofstream(file) << "[Config]\nServerURL=" << address << "\nServerProdURL=" << address
                        << "\ndump_path=" << directory << "/dumps\n[CrashKeys]\nproduct=example\n";
    ZBase::SetEnvironmentVariable("ZENT_CRASH_CONFIG_FILE"_w,
                                  ZBase::UTF8ToWideChar(file.c_str(), true).c_str());
    ZBase::SetCrashAttr("version", "1.0", true);
    if (!ZBase::InstallCrashHandler()) {
        std::fputs("there is no crash reporting here; \"zbase crash check\" tells why\n", stderr);
        return 1;
    }
    ZBase::SetCrashAttr("request", "42", true);  // at any time
    ServeRequest();
    return 0;
}
