// zbase-crash-sender: sends crash reports, since a process that has just crashed can't send its own. The
// library starts it and writes a request to its standard input, where it is answered too;
// Base/crash/detail/CrashContract.h has both.

#include "LeftDumps.h"
#include "Starter.h"

#include "tools/zbase/dumps/CrashAttachments.h"

#include <Base/crash/CrashStore.h>
#include <Base/crash/detail/CrashContract.h>
#include <Base/text/UnicodeConversions.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace ZBase::detail;
using ZBase::CrashReportSender;
using ZBase::WideString;
using Texts = std::vector<WideString>;

Texts Split(const std::string& input) {
    Texts texts;
    for (std::size_t start = 0; start < input.size();) {
        const std::size_t end = input.find('\0', start);
        if (end == std::string::npos) break;
        texts.emplace_back(ZBase::UTF8ToWideChar(&input[start], true).c_str());
        start = end + 1;
    }
    return texts;
}

// Names and values from `at` on, up to an empty name or the end; moves `at` after it.
ZBase::CrashConfigTable Pairs(const Texts& texts, std::size_t& at) {
    ZBase::CrashConfigTable pairs;
    for (; at + 1 < texts.size() && !texts[at].empty(); at += 2) pairs[texts[at]] = texts[at + 1];
    ++at;
    return pairs;
}

WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), true).c_str();
}

std::string Narrow(const WideString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), true).c_str();
}

bool SendReport(const Texts& texts) {
    std::size_t at = kSettingsPlace;
    const ZBase::CrashConfigTable settings = Pairs(texts, at);
    CrashReportSender::Fields parameters = Pairs(texts, at);
    CrashReportSender::Fields files = {{Wide(kDumpField), texts[kDumpPlace]}};
    const std::filesystem::path dump(Narrow(texts[kDumpPlace]));
    const std::string missing = KeepAttachments(dump, settings);
    if (!missing.empty()) parameters.try_emplace(Wide(kMissingAttachmentsField), Wide(missing));
    AddAttachments(dump, parameters, files);
    const ZBase::ReportResult result =
        CrashReportSender(WideString()).SendCrashReport(texts[kServerPlace], parameters, files, nullptr);
    const bool goes = result == ZBase::RESULT_SUCCEEDED && !ChoiceSetting<"keep_dump_file">(settings);
    if (goes) RemoveAttachments(dump);
    const bool isTaken = Answer(AnswerOf(result));
    ZBase::CrashStore(dump.parent_path().string(), settings).Trim(goes ? dump.string() : "");
    return isTaken;
}

bool SendInBackground(const Texts& texts) {
    std::size_t at = kSettingsPlace;
    const ZBase::CrashConfigTable settings = Pairs(texts, at);
    const EPart part = GoOnInBackground();
    if (part != EPart::eGoesOn) return Answer(part == EPart::eStays ? kUnderWay : kNotUnderWay);
    SendLeftDumps(static_cast<unsigned int>(std::atoi(Narrow(texts[kProcessPlace]).c_str())),
                  Narrow(texts[kDirectoryPlace]), settings);
    return true;
}

}  // namespace

int main() {
    const Texts texts = Split(ReadRequest());
    if (texts.size() < kSettingsPlace) return 1;
    if (texts[kRequestPlace] == Wide(kReportRequest)) return SendReport(texts) ? 0 : 1;
    if (texts[kRequestPlace] == Wide(kLeftDumpsRequest)) return SendInBackground(texts) ? 0 : 1;
    return 1;
}
