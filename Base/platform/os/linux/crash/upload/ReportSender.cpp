// The data of the sender is allocated when the handler is created, since the process that starts it may have
// no heap any more.

#include <Base/platform/os/crash/ReportSender.h>
#include <Base/platform/os/linux/crash/CrashEquipment.h>
#include <Base/platform/os/linux/memory/WipedMemory.h>
#include <Base/platform/os/linux/processes/HelperProcess.h>
#include <Base/platform/os/processes/Environment.h>

#include <sys/mman.h>
#include <cstring>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr char kSender[] = "zbase-crash-sender";

// The variables of an upload, and those needed to load the sender.
constexpr const char* kVariables[] = {"http_proxy",    "https_proxy",  "HTTPS_PROXY",     "all_proxy",
                                      "ALL_PROXY",     "no_proxy",     "NO_PROXY",        "CURL_CA_BUNDLE",
                                      "SSL_CERT_FILE", "SSL_CERT_DIR", "LD_LIBRARY_PATH", "PATH",
                                      "HOME",          "ASAN_OPTIONS", "UBSAN_OPTIONS"};

static_assert(std::size(kVariables) < HelperProgram::kMostVariables);

constexpr std::size_t kReports =
    3;  // at a time: of a crash, of a dump on demand, of the crash of a child of vfork

HelperLaunch* TakeLaunch() {
    HelperLaunch* const launches = gEquipment.launches;
    for (HelperLaunch* launch = launches; launch != launches + kReports; ++launch) {
        if (launch->Take()) return launch;
    }
    return nullptr;
}

}  // namespace

void PrepareReportSender() {
    if (gEquipment.launches == nullptr)
        gEquipment.launches =
            static_cast<HelperLaunch*>(AllocateWipedMemory(kReports * sizeof(HelperLaunch)));
    std::size_t size = sizeof(HelperProgram);
    for (const char* name : kVariables) {
        const char* value = GetNarrowEnvironment(name);
        if (value != nullptr) size += std::strlen(name) + std::strlen(value) + 2;
    }
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return;
    auto* const program = static_cast<HelperProgram*>(pages);
    if (!program->Find(kSender)) {
        munmap(pages, size);
        return;
    }
    char* text = reinterpret_cast<char*>(program + 1);
    char** next = program->EndOfEnvironment();
    for (const char* name : kVariables) {
        const char* value = GetNarrowEnvironment(name);
        if (value == nullptr) continue;
        *next++ = text;
        text = stpcpy(stpcpy(stpcpy(text, name), "="), value) + 1;
    }
    *next = nullptr;
    gEquipment.sender = program;  // one of an earlier installation is leaked: a crash may be using it
}

char RunReportSender(const ReportPiece* pieces, std::size_t count, unsigned int seconds) {
    const HelperProgram* const sender = gEquipment.sender;
    if (sender == nullptr || gEquipment.launches == nullptr) return 0;
    HelperLaunch* const launch = TakeLaunch();
    return launch == nullptr ? static_cast<char>(0) : launch->Run(*sender, pieces, count, seconds);
}

}  // namespace ZBase::os
