#include "LocalReceiver.h"
#include "tools/zbase/terminal/Console.h"

#include <cerrno>

namespace {

namespace fs = std::filesystem;

std::string ReceiverProgram() {
    const fs::path directory = ProgramDirectory();
    std::string program = ProgramIn(directory.string(), "crash-receiver");
    if (program.empty()) throw FileFailure((directory / "crash-receiver").string(), errno);
    return program;
}

}  // namespace

LocalReceiver::LocalReceiver()
    : mDirectory("zbase-reports"), mProgram({ReceiverProgram(), mDirectory.Path().string()}) {}
