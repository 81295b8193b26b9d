#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/WideString.h>

#include <map>

namespace ZBase {

/// The result of sending a crash report.
enum ReportResult {
    RESULT_FAILED = 0,  // no status, or one that may change: try later
    RESULT_REJECTED,    // the server rejected the report (status 400 to 499)
    RESULT_SUCCEEDED,   // the server has it (status 200 to 299)
    RESULT_THROTTLED,   // not sent: the limit of this day is reached
};

/// Sends crash reports to a server as multipart form POSTs over HTTP or HTTPS. The proxy and the certificates
/// come from the environment: `http_proxy`, `https_proxy`, `all_proxy`, `no_proxy`; `CURL_CA_BUNDLE` or
/// `SSL_CERT_FILE`.
class ZBASE_API CrashReportSender {
public:
    using Fields = std::map<WideString, WideString>;

    /// The counts of reports are kept in the file, if its name is not empty.
    explicit CrashReportSender(const WideString& checkpointFile);

    /// The most reports in one day (UTC), counted in the file; -1, the default, means no limit.
    void set_max_reports_per_day(int reports) { mMaxReportsPerDay = reports; }
    int max_reports_per_day() const { return mMaxReportsPerDay; }

    /// Posts `parameters` (name, value) and `files` (name, path) to `url`. A name is made of printable ASCII
    /// characters without quotes. On success the body of the reply, up to 64 KiB, is put into `reportCode`;
    /// for a null it is not waited for. Waits 10 seconds for a connection and 60 for all. With files of 1 MiB
    /// and more the server is queried first, for 3 seconds, by OPTIONS, whether it accepts compressed
    /// requests: it does if it replies with a status of 200 to 299 and `Accept-Encoding: gzip`.
    ReportResult SendCrashReport(const WideString& url, const Fields& parameters, const Fields& files,
                                 WideString* reportCode);

private:
    void ReadCheckpoint();
    void CountReport(int today);

    WideString mCheckpointFile;
    int mMaxReportsPerDay = -1;
    int mLastSentDate = -1;  // YYYYMMDD
    int mReportsSent = 0;    // on that day
};

}  // namespace ZBase
