#pragma once

#include <Base/crash/CrashConfig.h>
#include <Base/crash/CrashReportSender.h>
#include <Base/frame/WideLiteral.h>
#include <Base/platform/os/crash/CrashDumps.h>

#include <cstddef>

namespace ZBase::detail {

// The contract of crash reporting with everything outside of the process: with the authors of
// "crash_report.ini", with the program that sends reports, with servers, and with tools that read the
// directory of dumps. The readers of the file, `zbase crash check`, the reports and the tables of
// docs/subsystems/crashes.md are made from this file.

// The settings of section "[Config]".

enum class ECrashSetting {
    eChoice,  // yes or no
    eNumber,  // decimal digits, within bounds
    eText,    // any text
    eFiles,   // any number of keys with one prefix, each with the path of a file
};

/// A row of the table.
struct CrashSetting {
    const unsigned short* key;  // of files the prefix of their keys
    const char* meaning;        // as `zbase crash check` prints it; of a choice, the meaning of yes
    const char* otherwise;      // of a choice, the meaning of no
    const char* yes;            // of a choice the one value that means yes; null for "true" and "TRUE"
    const char* usual;          // a value for an absent key; empty for none, null if there must be one
    const char* more;           // for the documents only
    ECrashSetting kind;
    unsigned int least;  // these three of a number
    unsigned int most;
    unsigned int usualNumber;
};

constexpr CrashSetting CrashChoice(const unsigned short* key, const char* usual, const char* yes,
                                   const char* no, const char* more = "") {
    return {key, yes, no, nullptr, usual, more, ECrashSetting::eChoice, 0, 0, 0};
}

constexpr CrashSetting CrashWord(const unsigned short* key, const char* word, const char* meaning,
                                 const char* otherwise, const char* more) {
    return {key, meaning, otherwise, word, "", more, ECrashSetting::eChoice, 0, 0, 0};
}

constexpr CrashSetting CrashFigure(const unsigned short* key, unsigned int least, unsigned int most,
                                   unsigned int usual, const char* meaning) {
    return {key, meaning, "", nullptr, "", "", ECrashSetting::eNumber, least, most, usual};
}

constexpr CrashSetting CrashText(const unsigned short* key, const char* usual, const char* meaning,
                                 const char* more = "") {
    return {key, meaning, "", nullptr, usual, more, ECrashSetting::eText, 0, 0, 0};
}

constexpr CrashSetting CrashFiles(const unsigned short* beginning, const char* meaning, const char* more) {
    return {beginning, meaning, "", nullptr, "", more, ECrashSetting::eFiles, 0, 0, 0};
}

/// A new setting is a row here, and a call of `ChoiceSetting`, `NumberSetting` or another where it is used.
inline constexpr CrashSetting kCrashSettings[] = {
    CrashChoice("enable"_w, "true", "crash reporting is on", "crash reporting is off"),
    CrashText("ServerURL"_w, nullptr, "where reports go", "`http://` or `https://`"),
    CrashText("ServerProdURL"_w, nullptr, "where reports go once the crash key customer_dsi is set",
              "by `SetCrashAttr`, to a number that is not 0"),
    CrashText("dump_path"_w, "crash_dumps", "where dumps are written", "its last level is made"),
    CrashChoice("native_dump"_w, "false", "the system's own handling follows", "the process ends"),
    CrashChoice("keep_dump_file"_w, "false", "dumps stay", "dumps go once they are sent"),
    CrashFigure("dump_seconds"_w, 1, 60, 10, "the most seconds for writing a dump"),
    CrashFigure("dump_megabytes"_w, 1, 2000, 64, "the most that one dump may take"),
    CrashFigure("max_dumps"_w, 0, 1'000'000, 50, "the most dumps of one user that are kept; 0: any number"),
    CrashFigure("max_dump_megabytes"_w, 0, 1'000'000, 512,
                "the most that the dumps of one user together may take; 0: any size"),
    CrashFigure("max_age_days"_w, 0, 100'000, 30, "the days after which a dump goes; 0: never"),
    CrashChoice("send_left"_w, "true", "dumps that were left are sent at the next start",
                "left dumps stay until sent by hand"),
    CrashFigure("send_pause_seconds"_w, 1, 3600, 60,
                "the first pause when they can't be sent; doubled up to an hour"),
    CrashFigure("max_reports_per_day"_w, 0, 1'000'000, 100,
                "the most dumps of those left behind that are sent in a day; 0: any number"),
    CrashFiles("attachment_"_w, "a file whose end goes with each report",
               "any number of such keys, see below"),
    CrashFigure("max_attachments"_w, 0, 100, 8, "the most files that go with a report"),
    CrashFigure("attachment_megabytes"_w, 1, 100, 1,
                "the most of each file that goes along; of a longer one its end"),
    CrashWord("chain"_w, "first", "handlers that were there before are asked first",
              "handlers that were there before are not asked", "see below"),
    CrashText("stacks_on"_w, "",
              "the signal that has all stacks written: SIGQUIT, SIGHUP, SIGUSR1 or SIGUSR2; none else"),
};

/// The row of a key of the file; null if no setting has this name. Another setting may begin with the prefix
/// of files.
inline const CrashSetting* FindCrashSetting(const WideString& key) {
    const CrashSetting* files = nullptr;
    for (const CrashSetting& row : kCrashSettings) {
        if (row.kind != ECrashSetting::eFiles && key == row.key) return &row;
        if (row.kind == ECrashSetting::eFiles && key.starts_with(row.key)) files = &row;
    }
    return files;
}

inline bool IsAttachment(const WideString& key) {
    const CrashSetting* const row = FindCrashSetting(key);
    return row != nullptr && row->kind == ECrashSetting::eFiles;
}

/// Whether a value of a choice means yes.
inline bool IsCrashChoiceTaken(const CrashSetting& choice, const WideString& value) {
    if (choice.yes == nullptr) return IsCrashSettingTrue(value);
    const std::string_view yes = choice.yes;
    return value == WideString(yes.begin(), yes.end());
}

/// The row of a key in the code. A key without a row, or of another kind, does not compile.
template <LiteralText Key>
consteval const CrashSetting& CrashRow(ECrashSetting kind) {
    for (const CrashSetting& row : kCrashSettings) {
        std::size_t i = 0;
        while (i != sizeof Key.units && row.key[i] == static_cast<unsigned char>(Key.units[i])) ++i;
        if (i == sizeof Key.units && row.kind == kind) return row;
    }
    throw "no setting of this name and kind";
}

/// The value of a text, or its usual one.
template <LiteralText Key>
WideString TextSetting(const CrashConfigTable& settings) {
    constexpr const CrashSetting& row = CrashRow<Key>(ECrashSetting::eText);
    const auto found = settings.find(row.key);
    if (found != settings.end()) return found->second;
    const std::string_view usual = row.usual == nullptr ? "" : row.usual;
    return WideString(usual.begin(), usual.end());
}

template <LiteralText Key>
bool HasTextSetting(const CrashConfigTable& settings) {
    constexpr const CrashSetting& row = CrashRow<Key>(ECrashSetting::eText);
    return settings.contains(row.key);
}

/// Whether a choice is yes, by its value or by default.
template <LiteralText Key>
bool ChoiceSetting(const CrashConfigTable& settings) {
    constexpr const CrashSetting& row = CrashRow<Key>(ECrashSetting::eChoice);
    const auto found = settings.find(row.key);
    if (found != settings.end()) return IsCrashChoiceTaken(row, found->second);
    const std::string_view usual = row.usual;
    return IsCrashChoiceTaken(row, WideString(usual.begin(), usual.end()));
}

/// A number within its limits; else the usual one.
template <LiteralText Key>
unsigned int NumberSetting(const CrashConfigTable& settings) {
    constexpr const CrashSetting& row = CrashRow<Key>(ECrashSetting::eNumber);
    return CrashNumberOf(settings, row.key);
}

// The fields of a report.

/// The file field with the dump. Each attachment is a file too, and each crash key a field.
inline constexpr char kDumpField[] = "upload_file_minidump";

/// The crash key that directs reports to `ServerProdURL`.
inline constexpr char kProductionKey[] = "customer_dsi";

inline constexpr char kReasonField[] = "reason";
inline constexpr char kHangingReason[] = "hanging";
inline constexpr char kDumpDirectoryField[] = "dump_directory";
inline constexpr char kExceptionField[] = "exception";
inline constexpr char kExceptionTypeField[] = "exception_type";
inline constexpr char kTerminateField[] = "terminate";
inline constexpr char kPureCallField[] = "pure_call";
inline constexpr char kAbortMessageField[] = "abort_message";
inline constexpr char kMissingAttachmentsField[] = "attachments_missing";

struct ReportField {
    const char* name;
    const char* when;
};

/// The fields that the library adds to a report. A crash key of one of these names wins.
inline constexpr ReportField kReportFields[] = {
    {kReasonField, "`hanging` in the report of a `CreateDump`"},
    {kDumpDirectoryField, "when the dump is not in `dump_path`"},
    {kExceptionField,
     "the text of an exception that nobody caught, a `Message` as its tree, and of those that "
     "are nested in it"},
    {kExceptionTypeField, "its type"},
    {kTerminateField, "`std::terminate` without an exception"},
    {kPureCallField, "a call of a pure virtual function"},
    {kAbortMessageField, "what the C library said, as of an assertion or a damaged heap"},
    {kMissingAttachmentsField, "the files that are not attached, each with the reason"},
};

// The requests to zbase-crash-sender.
//
// A request is texts, each terminated by a zero, and its answer is one character:
//
//     "report"      server   dump       settings  ""  fields     AnswerOf the result
//     "left dumps"  process  directory  settings  ""             "1", as soon as it is under way, or "0"
//
// Settings and fields are names and values, UTF-8; of several values of a field the last one is used.
//
// For a report the attachments are copied first, with their content at that moment, and after the reply old
// dumps in its directory are deleted. Left dumps of a directory are sent in the background, as long as the
// process of this number lives.

inline constexpr char kReportRequest[] = "report";
inline constexpr char kLeftDumpsRequest[] = "left dumps";

inline constexpr std::size_t kRequestPlace = 0;
inline constexpr std::size_t kServerPlace = 1;
inline constexpr std::size_t kDumpPlace = 2;
inline constexpr std::size_t kProcessPlace = 1;
inline constexpr std::size_t kDirectoryPlace = 2;
inline constexpr std::size_t kSettingsPlace = 3;

constexpr char AnswerOf(ReportResult result) {
    return static_cast<char>('0' + result);
}

/// No reply means failure.
constexpr ReportResult ResultOf(char answer) {
    return answer >= AnswerOf(RESULT_FAILED) && answer <= AnswerOf(RESULT_THROTTLED)
               ? static_cast<ReportResult>(answer - '0')
               : RESULT_FAILED;
}

inline constexpr char kUnderWay = '1';
inline constexpr char kNotUnderWay = '0';

// Names in the directory of dumps, after a GUID, and beside the dumps.

using os::kDumpEnding;
inline constexpr char kSendingEnding[] = ".sending.dmp";  // of a dump that is being sent
inline constexpr char kAttachmentsEnding[] = ".attachments";

inline constexpr char kReportsOfTheDay[] = "crash-sender.count";
inline constexpr char kPauseOfTheSender[] = "crash-sender.pause";

}  // namespace ZBase::detail
