#include "RoadCrossing.h"
#include "Console.h"
#include "MessageDocument.h"
#include "RecordView.h"
#include "SecondProcess.h"

namespace {

using ZBase::Message;

std::string Indented(const std::string& lines) {
    std::string indented;
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
        indented += "  " + lines.substr(at, end - at);
        at = end;
    }
    return indented;
}

}  // namespace

void CrossProcesses(const Message& record) {
    const std::string document = ToDocument(record);
    Print(Styled("  as it leaves process " +
                     std::string(
                         ZBase::ToDecimalString(static_cast<int>(ZBase::GetCurrentProcessID())).c_str()) +
                     ":",
                 "2") +
          "\n" + Indented(document));
    const SecondProcess second = RunSecondProcess({"message", "--xml", "-"}, document);
    Message back;
    ReadDocumentText(second.output, back);
    Print(Styled("  as it comes back from process " + std::to_string(second.id) + ":", "2") + "\n");
    PrintTree(back);
    Message sent;
    ReadDocumentText(document, sent);
    if (sent != back) throw Failure("the record came back another one");
    Print(record == sent ? "  It came back the same.\n"
                         : "  It came back the same, but for what XML cannot hold.\n");
}
