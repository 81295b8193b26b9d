// zbase-crash-sender: sends one crash report. The library starts it in a process that has just crashed, and
// cannot do the work itself. The standard input is a connection to that process: the address of the server,
// the path of the dump, the names and values of the settings with an empty text behind them, and then the
// names and values of the crash keys, each terminated by a zero, to the end. What is answered there is one
// character: "0" and the `ReportResult`. Then there is room to be made where the dump lies.

#include <Base/ZBase.h>

#include <unistd.h>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace ZBase::Literals;
using ZBase::CrashReportSender;
using ZBase::WideString;

std::string ReadInput() {
    std::string input;
    char piece[4096];
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, piece, sizeof piece);
        if (count > 0) input.append(piece, static_cast<std::size_t>(count));
        if (count == 0 || (count < 0 && errno != EINTR)) return input;
    }
}

std::vector<WideString> Split(const std::string& input) {
    std::vector<WideString> texts;
    for (std::size_t start = 0; start < input.size();) {
        const std::size_t end = input.find('\0', start);
        if (end == std::string::npos) break;
        texts.emplace_back(ZBase::UTF8ToWideChar(&input[start], true).c_str());
        start = end + 1;
    }
    return texts;
}

struct Task {
    WideString server;
    WideString dump;
    ZBase::CrashConfigTable settings;
    CrashReportSender::Fields parameters;
};

Task Read(const std::vector<WideString>& texts) {
    Task task;
    if (texts.size() < 2) return task;
    task.server = texts[0];
    task.dump = texts[1];
    std::size_t i = 2;
    for (; i + 1 < texts.size() && !texts[i].empty(); i += 2) task.settings[texts[i]] = texts[i + 1];
    for (++i; i + 1 < texts.size(); i += 2) task.parameters[texts[i]] = texts[i + 1];
    return task;
}

bool KeepsDumps(const Task& task) {
    const auto setting = task.settings.find("keep_dump_file"_w);
    return setting != task.settings.end() && ZBase::IsCrashSettingTrue(setting->second);
}

// Of all dumps in the directory of this one, which goes at once if its server has it.
void Trim(const Task& task, ZBase::ReportResult result) {
    const std::filesystem::path dump(ZBase::WideCharToUTF8(task.dump.c_str(), true).c_str());
    const bool goes = result == ZBase::RESULT_SUCCEEDED && !KeepsDumps(task);
    ZBase::CrashStore(dump.parent_path().string(), task.settings).Trim(goes ? dump.string() : "");
}

}  // namespace

int main() {
    const Task task = Read(Split(ReadInput()));
    const ZBase::ReportResult result =
        CrashReportSender(WideString())
            .SendCrashReport(task.server, task.parameters, {{"upload_file_minidump"_w, task.dump}}, nullptr);
    const char answer = static_cast<char>('0' + result);
    const bool isTaken = write(STDIN_FILENO, &answer, 1) == 1;
    Trim(task, result);
    return isTaken ? 0 : 1;
}
