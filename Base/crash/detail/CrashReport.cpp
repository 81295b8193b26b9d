#include <Base/crash/detail/CrashKeyLog.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/Pages.h>
#include <Base/platform/os/ReportSender.h>

#include <atomic>
#include <cstring>
#include <string>

namespace ZBase::detail {

namespace {

constexpr unsigned int kUploadSeconds = 60;
constexpr char kHanging[] = "reason\0hanging";
constexpr char kElsewhere[] = "dump_directory";

CrashKeyLog sKeys;
std::atomic<const char*> spServerUrl = nullptr;
std::atomic<const char*> spServerProdUrl = nullptr;

// Into pages of its own. What stood there before stays: it may be in use.
void PrepareUrl(std::atomic<const char*>& place, const unsigned short* key) {
    const auto found = gCrashConfig.find(key);
    const std::string url = found == gCrashConfig.end() ? "" : ReportText(found->second);
    if (place != nullptr && url == place.load()) return;
    auto* const text = static_cast<char*>(os::AllocatePages(url.size() + 1));
    if (text == nullptr) return;
    std::memcpy(text, url.c_str(), url.size() + 1);
    place = text;
}

}  // namespace

void PrepareCrashReport() {
    sKeys.Write(gCrashKeys, gCustomerDsi);
    PrepareUrl(spServerUrl, "ServerURL"_w);
    PrepareUrl(spServerProdUrl, "ServerProdURL"_w);
}

void PrepareCrashKey(const std::string& name, const std::string& value) {
    sKeys.Append(name, value, gCrashKeys, gCustomerDsi);
}

os::DumpMemory BeginReport(bool onDemand) {
    static const CrashKeysBlock sNone{};
    CrashKeysBlock* const keys = sKeys.BeginReading();
    if (keys == nullptr) return {&sNone, sizeof sNone};
    keys->hanging = onDemand ? 1 : 0;
    return {keys, sizeof *keys + keys->size};
}

void EndReport() {
    sKeys.EndReading();
}

ReportResult SendPreparedReport(const os::TriedDump& dump) {
    const char* const url = gCustomerDsi ? spServerProdUrl : spServerUrl;
    const CrashKeysBlock* const keys = sKeys.Present();
    if (url == nullptr || keys == nullptr) return RESULT_FAILED;
    const os::ReportPiece pieces[] = {
        {url, std::strlen(url) + 1},
        {dump.path, std::strlen(dump.path) + 1},
        // A crash key of one of these names comes later and wins.
        {kHanging, dump.onDemand ? sizeof kHanging : 0},
        {kElsewhere, dump.elsewhere == nullptr ? 0 : sizeof kElsewhere},
        {dump.elsewhere, dump.elsewhere == nullptr ? 0 : std::strlen(dump.elsewhere) + 1},
        {reinterpret_cast<const char*>(keys + 1), keys->size},
    };
    const char answer = os::RunReportSender(pieces, std::size(pieces), kUploadSeconds);
    return answer >= '0' && answer <= '3' ? static_cast<ReportResult>(answer - '0') : RESULT_FAILED;
}

}  // namespace ZBase::detail
