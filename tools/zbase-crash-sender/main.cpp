// zbase-crash-sender: sends crash reports. The library starts it and hands it over what to do on its standard
// input, as texts that are each terminated by a zero; what is answered there is one character.
//
// "report", the address of the server, the path of the dump, the names and values of the settings with an
// empty text behind them, and then the names and values of the crash keys, to the end: a process that has
// just crashed can't send its report itself. First the files that go along are copied as they are now. The
// answer is "0" and the `ReportResult`. Then room is made where the dump lies.
//
// "left dumps", the number of the process, a directory, and the settings as above: sends what was left there.
// The answer comes at once, and the work is done in the background.

#include "LeftDumps.h"

#include "tools/zbase/dumps/CrashAttachments.h"

#include <Base/ZBase.h>

#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace ZBase::Literals;
using ZBase::CrashReportSender;
using ZBase::WideString;
using Texts = std::vector<WideString>;

std::string ReadInput() {
    std::string input;
    char piece[4096];
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, piece, sizeof piece);
        if (count > 0) input.append(piece, static_cast<std::size_t>(count));
        if (count == 0 || (count < 0 && errno != EINTR)) return input;
    }
}

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

// Names and values from `at` on, up to an empty name or the end, behind which `at` is left.
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

bool Answer(char answer) {
    return write(STDIN_FILENO, &answer, 1) == 1;
}

bool KeepsDumps(const ZBase::CrashConfigTable& settings) {
    const auto setting = settings.find("keep_dump_file"_w);
    return setting != settings.end() && ZBase::IsCrashSettingTrue(setting->second);
}

bool SendReport(const Texts& texts) {
    std::size_t at = 3;
    const ZBase::CrashConfigTable settings = Pairs(texts, at);
    CrashReportSender::Fields parameters = Pairs(texts, at);
    CrashReportSender::Fields files = {{"upload_file_minidump"_w, texts[2]}};
    const std::filesystem::path dump(Narrow(texts[2]));
    const std::string missing = KeepAttachments(dump, settings);
    if (!missing.empty()) parameters.try_emplace(Wide(kMissingAttachments), Wide(missing));
    AddAttachments(dump, parameters, files);
    const ZBase::ReportResult result =
        CrashReportSender(WideString()).SendCrashReport(texts[1], parameters, files, nullptr);
    const bool goes = result == ZBase::RESULT_SUCCEEDED && !KeepsDumps(settings);
    if (goes) RemoveAttachments(dump);
    const bool isTaken = Answer(static_cast<char>('0' + result));
    ZBase::CrashStore(dump.parent_path().string(), settings).Trim(goes ? dump.string() : "");
    return isTaken;
}

bool SendInBackground(const Texts& texts) {
    std::size_t at = 3;
    const ZBase::CrashConfigTable settings = Pairs(texts, at);
    const pid_t child = fork();
    if (child != 0) return Answer(child > 0 ? '1' : '0');
    close(STDIN_FILENO);
    setsid();
    SendLeftDumps(std::atoi(Narrow(texts[1]).c_str()), Narrow(texts[2]), settings);
    return true;
}

}  // namespace

int main() {
    const Texts texts = Split(ReadInput());
    if (texts.size() < 3) return 1;
    if (texts[0] == "report"_w) return SendReport(texts) ? 0 : 1;
    if (texts[0] == "left dumps"_w) return SendInBackground(texts) ? 0 : 1;
    return 1;
}
