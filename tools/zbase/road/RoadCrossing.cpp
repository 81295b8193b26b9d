#include "RoadCrossing.h"
#include "tools/system/SecondProcess.h"
#include "tools/zbase/record/MessageDocument.h"
#include "tools/zbase/record/RecordView.h"
#include "tools/zbase/terminal/Console.h"

using ZBase::Message;

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
