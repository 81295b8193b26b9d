#include "CrashCommands.h"
#include "CrashSettings.h"
#include "tools/zbase/dumps/CrashDelivery.h"
#include "tools/zbase/dumps/CrashDumps.h"
#include "tools/zbase/terminal/Console.h"

#include <memory>

namespace {

namespace fs = std::filesystem;
using ZBase::WideString;

// Sends a dump, and prints the result. False if it stays and should not.
bool SendDump(CrashDelivery& delivery, const fs::path& dump) {
    WideString code;
    std::string result;
    bool isWell = true;
    switch (delivery.Deliver(dump.filename().string(), code)) {
        case EDelivery::eSent:
            result = "sent, report " + Narrow(code.c_str());
            break;
        case EDelivery::eSentAndKept:
            result = "sent, report " + Narrow(code.c_str()) +
                     (delivery.KeepsDumps() ? ", stays by keep_dump_file" : ", but can't be deleted");
            break;
        case EDelivery::eSentBefore:
            result = "was sent before, stays";
            break;
        case EDelivery::eInUse:
            result = "is being written or sent by another process";
            break;
        case EDelivery::eGone:
            result = "is gone, another process has taken it";
            break;
        case EDelivery::eNoDump:
            result = "no whole dump, stays";
            isWell = false;
            break;
        case EDelivery::eNotSent:
            result = "not sent, stays";
            isWell = false;
            break;
        case EDelivery::eRejected:
            result = "rejected, stays";
            isWell = false;
            break;
        case EDelivery::eThrottled:
            result = "not sent, stays: the reports of this day are used up (max_reports_per_day)";
            isWell = false;
            break;
    }
    Print(Shown(dump.string() + ": " + result) + "\n");
    return isWell;
}

// A dump that can't be read or claimed does not stop the others.
bool TryToSendDump(CrashDelivery& delivery, const fs::path& dump) {
    try {
        return SendDump(delivery, dump);
    } catch (const Failure& failure) {
        Print(Shown(failure.what()) + ", stays\n");
        return false;
    }
}

// Without a directory it uses the configured one.
int Send(const std::string& directory) {
    NeedCrashReporting();
    const CrashSettings config = ReadCrashSettings("");
    const fs::path place = directory.empty() ? config.DumpDirectory() : fs::path(directory);
    std::error_code missing;
    if (!fs::is_directory(place, missing)) throw Failure(place.string() + ": not a directory");
    CrashDelivery delivery(place, config.settings, config.crashKeys);
    bool allSent = true;
    for (const fs::path& dump : DumpsIn(place)) allSent = TryToSendDump(delivery, dump) && allSent;
    delivery.CleanUp();
    return allSent ? 0 : 1;
}

}  // namespace

void AddCrashSendCommand(Command& crash) {
    Command send = crash.AddCommand(
        "send", "Send the dumps that were left behind; delete what arrived, if dumps are not kept");
    const auto directory = std::make_shared<std::string>();
    send.AddOption("DIRECTORY", *directory, "Their directory, in place of that of the configuration");
    send.Runs([directory] { return Send(*directory); });
}
