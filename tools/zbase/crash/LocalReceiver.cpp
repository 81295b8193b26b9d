#include "LocalReceiver.h"
#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <cerrno>

namespace {

namespace fs = std::filesystem;

std::string ReceiverProgram() {
    const fs::path directory = ProgramDirectory();
    const std::string program = ProgramIn(directory.string(), "crash-receiver");
    if (program.empty()) throw FileFailure((directory / "crash-receiver").string(), errno);
    return program;
}

}  // namespace

LocalReceiver::LocalReceiver() {
    const std::string program = ReceiverProgram();
    mDirectory = MakeTemporaryDirectory("zbase-reports");
    mProgram.emplace(std::vector<std::string>{program, mDirectory.string()});
}

LocalReceiver::~LocalReceiver() {
    mProgram.reset();
    std::error_code ignored;
    fs::remove_all(mDirectory, ignored);
}
