#include <Base/platform/os/crash/ReportSender.h>
#include <Base/platform/os/windows/crash/DumpWriter.h>

namespace ZBase::os {

void PrepareReportSender() {
    PrepareSenderForCrash();
}

// What has no dump of its own takes a sender of its own.
char RunReportSender(const ReportPiece* pieces, std::size_t count, unsigned int seconds) {
    const DWORD milliseconds = 1000 * seconds;
    if (SenderProcess* const present = SenderOfThisDump()) return present->Ask(pieces, count, milliseconds);
    SenderProcess sender;
    const char answer = sender.Start() ? sender.Ask(pieces, count, milliseconds) : static_cast<char>(0);
    sender.Close();
    return answer;
}

}  // namespace ZBase::os
