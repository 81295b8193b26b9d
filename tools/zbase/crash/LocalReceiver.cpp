#include "LocalReceiver.h"
#include "tools/zbase/terminal/Console.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>

extern char** environ;

namespace {

namespace fs = std::filesystem;

fs::path ReceiverProgram() {
    fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "crash-receiver";
    if (access(program.c_str(), X_OK) != 0) throw FileFailure(program, errno);
    return program;
}

fs::path MakeDirectory() {
    std::string name = fs::temp_directory_path() / "zbase-reports-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw FileFailure(name, errno);
    return name;
}

// Starts it with its output on a pipe, and returns the reading end.
std::FILE* Start(const fs::path& program, const fs::path& directory, pid_t& process) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw FileFailure("pipe", errno);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    char* arguments[] = {const_cast<char*>("crash-receiver"), const_cast<char*>(directory.c_str()), nullptr};
    const int failure = posix_spawn(&process, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0) throw FileFailure(program, failure);
    return fdopen(ends[0], "r");
}

}  // namespace

LocalReceiver::LocalReceiver() {
    const fs::path program = ReceiverProgram();
    mDirectory = MakeDirectory();
    std::FILE* output = Start(program, mDirectory, mProcess);
    char address[256] = "";
    const bool started = std::fgets(address, sizeof address, output) != nullptr;
    std::fclose(output);  // it continues without a reader
    if (!started) throw Failure(program.string() + " does not start");
    mAddress = address;
    mAddress.erase(mAddress.find_last_not_of('\n') + 1);
}

LocalReceiver::~LocalReceiver() {
    kill(mProcess, SIGKILL);
    while (waitpid(mProcess, nullptr, 0) < 0 && errno == EINTR) {
    }
    std::error_code ignored;
    fs::remove_all(mDirectory, ignored);
}
