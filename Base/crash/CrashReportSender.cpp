#include <Base/crash/CrashReportSender.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/platform/os/crash/Upload.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace ZBase {

namespace {

using detail::ReportText;

constexpr char kCheckpointSignature[] = "GBP1";

int Today() {
    const std::chrono::year_month_day day =
        std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
    return static_cast<int>(day.year()) * 10000 +
           static_cast<int>(static_cast<unsigned int>(day.month())) * 100 +
           static_cast<int>(static_cast<unsigned int>(day.day()));
}

os::UploadFields Narrow(const CrashReportSender::Fields& fields) {
    os::UploadFields narrow;
    for (const auto& [name, value] : fields) narrow[ReportText(name)] = ReportText(value);
    return narrow;
}

std::filesystem::path FilePath(const WideString& name) {
    const std::string text = ReportText(name);
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

bool IsWebAddress(const std::string& url) {
    std::string scheme = url.substr(0, url.find("://"));
    for (char& c : scheme) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return url.size() > scheme.size() && (scheme == "http" || scheme == "https");
}

}  // namespace

CrashReportSender::CrashReportSender(const WideString& checkpointFile) : mCheckpointFile(checkpointFile) {
    if (!mCheckpointFile.empty()) ReadCheckpoint();
}

ReportResult CrashReportSender::SendCrashReport(const WideString& url, const Fields& parameters,
                                                const Fields& files, WideString* reportCode) {
    const int today = Today();
    if (today == mLastSentDate && mMaxReportsPerDay != -1 && mReportsSent >= mMaxReportsPerDay) {
        return RESULT_THROTTLED;
    }
    const std::string address = ReportText(url);
    if (!IsWebAddress(address)) return RESULT_FAILED;
    std::string answer;
    const long status =
        os::PostForm(address, Narrow(parameters), Narrow(files), reportCode == nullptr ? nullptr : &answer);
    if (status >= 400 && status < 500) return RESULT_REJECTED;
    if (status < 200 || status > 299) return RESULT_FAILED;
    CountReport(today);
    if (reportCode != nullptr) *reportCode = detail::WideReportText(answer);
    return RESULT_SUCCEEDED;
}

void CrashReportSender::ReadCheckpoint() {
    std::ifstream file(FilePath(mCheckpointFile));
    std::string signature;
    if (!std::getline(file, signature) || signature != kCheckpointSignature) return;
    if (!(file >> mLastSentDate)) mLastSentDate = -1;
    if (!(file >> mReportsSent)) mReportsSent = 0;
}

void CrashReportSender::CountReport(int today) {
    if (today != mLastSentDate) {
        mLastSentDate = today;
        mReportsSent = 0;
    }
    ++mReportsSent;
    if (mCheckpointFile.empty()) return;
    std::ofstream(FilePath(mCheckpointFile)) << kCheckpointSignature << '\n'
                                             << mLastSentDate << '\n'
                                             << mReportsSent << '\n';
}

}  // namespace ZBase
