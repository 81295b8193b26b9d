// BlindProbe QUESTION [ARGUMENT ...]: calls the library in a process that can't open files or read links, so
// has no /proc. Ends with 250 where the system does not support that.

#include <Base/ZBase.h>

#include <getopt.h>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "tests/support/RefusedCalls.h"

namespace {

void Print(const ZBase::ReturnWString& text) {
    std::fputs(ZBase::WideCharToUTF8(text.c_str(), true).c_str(), stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const std::string question = argv[1];
    if (question == "sorted") {
        while (getopt(argc, argv, "ab") != -1) {
        }
    }
    if (!test::RefuseCalls({SYS_openat, SYS_open, SYS_readlink, SYS_readlinkat}, ENOENT)) return 250;
    if (question == "name") {
        Print(ZBase::GetProcessName(ZBase::GetCurrentProcessID()));
    } else if (question == "module") {
        Print(ZBase::GetModuleFileNameByAddressWithinModule(reinterpret_cast<const void*>(&main)));
    } else if (question == "heap") {
        const auto number = std::make_unique<int>(0);
        try {
            Print(ZBase::GetModuleFileNameByAddressWithinModule(number.get()));
        } catch (const ZBase::Message& failure) {
            std::printf("%d", failure.GetID());
        }
    } else if (question == "bytes") {
        const unsigned long bytes = ZBase::GetPrivateBytes();
        std::printf("%lu", bytes);
    } else {
        Print(ZBase::GetCurrentProcessName());
    }
    return 0;
}
