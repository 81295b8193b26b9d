#include "Commands.h"
#include "tools/system/Files.h"
#include "tools/system/Programs.h"
#include "tools/zbase/record/RecordView.h"
#include "tools/zbase/road/GovernedReading.h"
#include "tools/zbase/road/RoadCrossing.h"
#include "tools/zbase/terminal/Console.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

// The library at work on a real file. Each station makes something real fail, and follows the failure: thrown
// as a record, caught and wrapped by each caller that knows more, shown at the end as a tree and as bytes. In
// the end one of them is sent to another process.

namespace {

using ZBase::Message;

// Ids of this command's own messages, in the domain of the server.
constexpr int kNotText = 103;
constexpr int kLoadFailed = 110;

constexpr std::size_t kPieceSize = 1024;
constexpr unsigned int kThreads = 3;
constexpr std::size_t kPlenty = std::size_t{1} << 30;

void RequireText(const std::string& file, const std::string& text) {
    try {
        std::vector<unsigned short> units(text.size() + 1);
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(text.data()), units.data(), text.size(),
                              false);
    } catch (Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kNotText, "%1 is not text; %2 bytes were read.")
            << file.c_str() << static_cast<unsigned long>(text.size());
        throw;
    }
}

void Load(const std::string& file, Budget& budget) {
    try {
        const GovernedText loaded = ReadGoverned(file, budget, kPieceSize, kThreads);
        RequireText(file, loaded.text);
        Print("  " + std::to_string(loaded.text.size()) + " bytes by " + std::to_string(kThreads) +
              " threads, in " + std::to_string(loaded.pieces) + " pieces of at most " +
              std::to_string(kPieceSize) + ", all of it UTF-8.\n");
    } catch (Message& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kLoadFailed, "Process %1 could not load its text.")
            << ZBase::GetCurrentProcessID();
        throw;
    }
}

void PrintCharges(const Budget& budget) {
    const std::vector<Charge> charges = budget.Charges();
    constexpr std::size_t kShown = 8;
    if (!charges.empty()) Print(Styled("  chunks of the buffer, and who paid:", "2") + "\n");
    for (std::size_t i = 0; i != charges.size() && i != kShown; ++i) {
        const Charge& charge = charges[i];
        Print("  " + std::to_string(charge.bytes) + " bytes for thread " + std::to_string(charge.thread) +
              ": the contract " + (charge.contractGranted ? "pays" : "refuses") + ", " +
              std::to_string(charge.contractLeft) + " left; " +
              (charge.governorAsked ? "the governor grants" : "the governor is not asked") + "\n");
    }
    if (charges.size() > kShown) Print("  and " + std::to_string(charges.size() - kShown) + " more\n");
    Print("  The buffer is gone, and the governor is owed " + std::to_string(budget.Outstanding()) +
          " bytes.\n");
}

// One station: the result of `load`, or its failure, at the edge of the program. Returns the failure, or an
// empty message.
// an empty message.
Message Arrive(const std::string& title, const std::string& file, std::size_t contract, bool showCharges) {
    Print("\n" + Styled(title, "1") + "\n");
    Budget budget(contract);
    try {
        Load(file, budget);
        if (showCharges) PrintCharges(budget);
    } catch (const Message& failure) {
        if (showCharges) PrintCharges(budget);
        Print(Styled("  caught, as a tree:", "2") + "\n");
        PrintTree(failure);
        Print(Styled("  the same record, byte by byte (offset, length, kind):", "2") + "\n");
        PrintRecords(failure);
        return failure;
    }
    return {};
}

// The sum of a contract that is exhausted in the middle of a file: half of its size.
std::size_t TooLittleFor(const std::string& file) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(file, missing);
    return missing ? 0 : static_cast<std::size_t>(size / 2);
}

int Travel(const std::string& file) {
    Print(
        "ZBase at work. Threads read a file into memory that budgets pay for: a contract has the sum of one\n"
        "request, a governor is asked for the whole process. What fails is a record: thrown where it "
        "happens,\n"
        "wrapped by every caller that knows more, shown at the end, and sent to another process as XML.\n");
    Arrive("1  " + Shown(file) + " is read by several threads into one buffer", file, kPlenty, true);
    Arrive("2  The same, and the contract runs out", file, TooLittleFor(file), true);
    Arrive("3  A file that is not there", file + ".missing", kPlenty, false);
    Message record;
    {
        const ForbiddenFile forbidden;
        record = Arrive("4  A file without permission", forbidden.Name(), kPlenty, false);
    }
    Arrive("5  Bytes that are no text: the zbase command itself", ThisProgram(), kPlenty, false);
    Print("\n" + Styled("6  The record of station 4 crosses into a second process, as XML", "1") + "\n");
    CrossProcesses(record);
    return 0;
}

}  // namespace

void AddRoadCommand(Command& zbase) {
    Command road = zbase.AddCommand("road", "Follow a file, and what fails on its way, through the library");
    const auto file = std::make_shared<std::string>(TextOfTheSystem());
    road.AddOption("FILE", *file, "A text to read");
    road.Runs([file] { return Travel(*file); });
}
