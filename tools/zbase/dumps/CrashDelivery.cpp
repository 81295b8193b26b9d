#include "CrashDelivery.h"
#include "CrashAttachments.h"
#include "CrashDumps.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/CrashContract.h>

#include <cerrno>
#include <system_error>

namespace {

namespace fs = std::filesystem;
using namespace ZBase::detail;
using ZBase::CrashConfigTable;
using ZBase::CrashReportSender;
using ZBase::WideString;

constexpr std::uintmax_t kLargestDump = std::uintmax_t{2} << 30;

}  // namespace

CrashDelivery::CrashDelivery(const fs::path& directory, const CrashConfigTable& settings,
                             const CrashConfigTable& crashKeys)
    : mDirectory(directory),
      mSettings(settings),
      mCrashKeys(crashKeys),
      mStore(directory.string(), settings) {}

EDelivery CrashDelivery::Deliver(const std::string& name, WideString& reportCode) {
    const fs::path path = mDirectory / name;
    std::error_code failed;
    const fs::file_type type = fs::symlink_status(path, failed).type();
    if (type == fs::file_type::none)
        throw FileFailure(path.string(), failed.default_error_condition().value());
    if (type == fs::file_type::not_found) return EDelivery::eGone;
    if (type != fs::file_type::regular) return EDelivery::eNoDump;
    if (mStore.IsSent(name)) return EDelivery::eSentBefore;
    ZBase::ClaimedDump claim;
    errno = 0;
    if (!claim.Claim(path.string())) {
        if (errno == 0 || errno == EWOULDBLOCK) return EDelivery::eInUse;
        if (errno == ENOENT) return EDelivery::eGone;
        throw FileFailure(path.string(), errno);
    }
    // Another process may have sent it before this one had it.
    if (mStore.IsSent(fs::path(claim.Path()).filename().string())) return EDelivery::eSentBefore;
    bool isDump = false;
    const ZBase::ReportResult result = Send(claim.Path(), isDump, reportCode);
    if (!isDump) return EDelivery::eNoDump;
    if (result == ZBase::RESULT_REJECTED) return EDelivery::eRejected;
    if (result == ZBase::RESULT_THROTTLED) return EDelivery::eThrottled;
    if (result != ZBase::RESULT_SUCCEEDED) return EDelivery::eNotSent;
    if (!KeepsDumps() && claim.Remove()) return EDelivery::eSent;
    claim.MarkSent();
    return EDelivery::eSentAndKept;
}

ZBase::ReportResult CrashDelivery::Send(const fs::path& dump, bool& isDump, WideString& reportCode) {
    std::error_code failed;
    const std::uintmax_t size = fs::file_size(dump, failed);
    if (failed || size > kLargestDump) return ZBase::RESULT_FAILED;
    const DumpedReport report = ReportOfDump(dump);
    isDump = report.isDump;
    if (!isDump) return ZBase::RESULT_FAILED;
    CrashReportSender::Fields parameters;
    if (!report.hasKeys) parameters = mCrashKeys;
    for (const auto& [name, value] : report.keys) parameters[Wide(name)] = Wide(value);
    CrashReportSender::Fields files = {{Wide(kDumpField), Wide(dump.string())}};
    AddAttachments(dump, parameters, files);
    const unsigned int most = NumberSetting<"max_reports_per_day">(mSettings);
    CrashReportSender sender(most == 0 ? WideString() : Wide((mDirectory / kReportsOfTheDay).string()));
    if (most != 0) sender.set_max_reports_per_day(static_cast<int>(most));
    const WideString server = report.isForProduction ? TextSetting<"ServerProdURL">(mSettings)
                                                     : TextSetting<"ServerURL">(mSettings);
    return sender.SendCrashReport(server, parameters, files, &reportCode);
}

void CrashDelivery::CleanUp() const {
    if (mStore.HasUnsent()) return;
    std::error_code failed;
    for (const char* name : {kReportsOfTheDay, kPauseOfTheSender}) fs::remove(mDirectory / name, failed);
}

bool CrashDelivery::KeepsDumps() const {
    return ChoiceSetting<"keep_dump_file">(mSettings);
}
