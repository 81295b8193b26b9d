#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashKeyLog.h>
#include <Base/crash/detail/CrashNotesBlock.h>
#include <Base/crash/detail/CrashReport.h>
#include <Base/crash/detail/CrashState.h>
#include <Base/crash/detail/LastWords.h>
#include <Base/crash/detail/ReportText.h>
#include <Base/platform/os/crash/ReportSender.h>
#include <Base/platform/os/memory/Pages.h>
#include <Base/platform/os/processes/Threads.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>

namespace ZBase::detail {

/// In pages of its own, followed by the text.
struct PreparedText {
    std::size_t length;

    const char* Start() const { return reinterpret_cast<const char*>(this + 1); }
    os::ReportPiece Piece() const { return {Start(), length}; }
};

namespace {

constexpr unsigned int kUploadSeconds = 60;
constexpr unsigned int kStartSeconds = 5;  // for a sender that continues in the background

// The old text is leaked: it may be in use.
void Prepare(std::atomic<const PreparedText*>& place, const std::string& text) {
    const PreparedText* const present = place;
    if (present != nullptr && text == std::string_view(present->Start(), present->length)) return;
    auto* const pages = static_cast<PreparedText*>(os::AllocatePages(sizeof(PreparedText) + text.size()));
    if (pages == nullptr) throw std::bad_alloc();
    pages->length = text.size();
    std::memcpy(pages + 1, text.data(), text.size());
    place = pages;
}

// With its terminator.
std::string Server(const WideString& address) {
    return ReportText(address) + '\0';
}

// A relative path of an attachment starts at the current directory.
std::string PreparedSetting(const WideString& name, const WideString& value) {
    std::string text = ReportText(value);
    if (!IsAttachment(name) || text.empty()) return text;
    std::error_code failed;
    const std::string absolute = std::filesystem::absolute(text, failed).string();
    return failed ? text : absolute;
}

// Names and values, followed by an empty text.
std::string Settings() {
    std::string texts;
    std::size_t size = 1;
    for (const auto& [name, value] : gCrash.tables->settings) size += name.size() + value.size() + 2;
    texts.reserve(size);
    for (const auto& [name, value] : gCrash.tables->settings) {
        const std::string text = ReportText(name);
        if (!text.empty()) texts += text + '\0' + PreparedSetting(name, value) + '\0';
    }
    return texts + '\0';
}

// A child that shares the memory may crash beside this process.
LastWordsBlock& OwnLastWords() {
    return gCrash.lastWords[os::SharesMemory() ? 1 : 0];
}

}  // namespace

void PrepareCrashReport() {
    gCrash.keyLog.Write(gCrash.tables->keys, gCrash.isProduction);
    Prepare(gCrash.serverUrl, Server(TextSetting<"ServerURL">(gCrash.tables->settings)));
    Prepare(gCrash.serverProdUrl, Server(TextSetting<"ServerProdURL">(gCrash.tables->settings)));
    Prepare(gCrash.settingTexts, Settings());
}

void PrepareCrashKey(const std::string& name, const std::string& value) {
    gCrash.keyLog.Append(name, value, gCrash.tables->keys, gCrash.isProduction);
}

void SendLeftDumps(const std::string& directory) {
    const PreparedText* const settings = gCrash.settingTexts;
    if (settings == nullptr) return;
    const std::string process = std::to_string(os::CurrentProcessId());
    const os::ReportPiece pieces[] = {
        {kLeftDumpsRequest, sizeof kLeftDumpsRequest},
        {process.c_str(), process.size() + 1},
        {directory.c_str(), directory.size() + 1},
        settings->Piece(),
    };
    os::RunReportSender(pieces, std::size(pieces), kStartSeconds);
}

os::DumpContent BeginReport(os::EDumpCause cause) {
    const CrashNotesBlock& notes = CrashNotes();
    os::DumpContent content{{{nullptr, 0}, {nullptr, 0}, {&notes, sizeof notes}}};
    CrashKeysBlock* const keys = gCrash.keyLog.BeginReading();
    if (keys != nullptr) {
        keys->hanging = cause == os::EDumpCause::eDemand ? 1 : 0;
        content.parts[0] = {keys, sizeof *keys + keys->size};
    }
    if (cause == os::EDumpCause::eDemand) return content;
    LastWordsBlock& words = OwnLastWords();
    words.head.sequence = 1;
    words.head.size = CopyLastWords(words.fields, cause);
    std::memcpy(words.head.magic, kLastWordsMagic, sizeof words.head.magic);
    content.parts[1] = {&words, sizeof words.head + words.head.size};
    return content;
}

void EndReport() {
    gCrash.keyLog.EndReading();
}

ReportResult SendPreparedReport(const os::TriedDump& dump) {
    const PreparedText* const url = gCrash.isProduction ? gCrash.serverProdUrl : gCrash.serverUrl;
    const PreparedText* const settings = gCrash.settingTexts;
    const CrashKeysBlock* const keys = gCrash.keyLog.Present();
    if (url == nullptr || settings == nullptr || keys == nullptr) return RESULT_FAILED;
    const LastWordsBlock& words = OwnLastWords();
    const os::ReportPiece pieces[] = {
        {kReportRequest, sizeof kReportRequest},
        url->Piece(),
        {dump.path, std::strlen(dump.path) + 1},
        settings->Piece(),
        // A crash key of one of these names comes later and wins.
        {kReasonField, dump.onDemand ? sizeof kReasonField : 0},
        {kHangingReason, dump.onDemand ? sizeof kHangingReason : 0},
        {kDumpDirectoryField, dump.elsewhere == nullptr ? 0 : sizeof kDumpDirectoryField},
        {dump.elsewhere, dump.elsewhere == nullptr ? 0 : std::strlen(dump.elsewhere) + 1},
        {words.fields, dump.onDemand ? 0 : words.head.size},
        {reinterpret_cast<const char*>(keys + 1), keys->size},
    };
    return ResultOf(os::RunReportSender(pieces, std::size(pieces), kUploadSeconds));
}

}  // namespace ZBase::detail
