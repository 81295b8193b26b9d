// zbase-crash-sender: sends one crash report. The library starts it in a process that has just crashed, and
// cannot do the work itself. The standard input is a connection to that process: the address of the server,
// the path of the dump, and then the names and values of the crash keys, each terminated by a zero, to the
// end. What is answered there is one character: "0" and the `ReportResult`.

#include <Base/ZBase.h>

#include <unistd.h>
#include <cerrno>
#include <string>
#include <vector>

namespace {

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

ZBase::ReportResult Send(const std::vector<WideString>& texts) {
    if (texts.size() < 2) return ZBase::RESULT_FAILED;
    using namespace ZBase::Literals;
    const CrashReportSender::Fields files = {{"upload_file_minidump"_w, texts[1]}};
    CrashReportSender::Fields parameters;
    for (std::size_t i = 2; i + 1 < texts.size(); i += 2) parameters[texts[i]] = texts[i + 1];
    return CrashReportSender(WideString()).SendCrashReport(texts[0], parameters, files, nullptr);
}

}  // namespace

int main() {
    const char answer = static_cast<char>('0' + Send(Split(ReadInput())));
    return write(STDIN_FILENO, &answer, 1) == 1 ? 0 : 1;
}
