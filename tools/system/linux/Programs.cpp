#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

extern char** environ;

std::vector<std::string> StartProgram(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    return {argv, argv + argc};
}

namespace {

constexpr char kThisProgram[] = "/proc/self/exe";

// As it was started, where there is no /proc.
std::filesystem::path ProgramPath() {
    std::error_code failure;
    std::filesystem::path path = std::filesystem::read_symlink(kThisProgram, failure);
    if (!failure) return path;
    return std::filesystem::canonical(reinterpret_cast<const char*>(getauxval(AT_EXECFN)));
}

}  // namespace

std::string ThisProgram() {
    return access(kThisProgram, R_OK) == 0 ? kThisProgram : ProgramPath().string();
}

std::string ProgramDirectory() {
    return ProgramPath().parent_path();
}

std::string FileOfCode(const void* code) {
    Dl_info file{};
    return dladdr(code, &file) == 0 ? "" : file.dli_fname;
}

std::string ProgramIn(const std::string& directory, const std::string& name) {
    const std::filesystem::path program = std::filesystem::path(directory) / name;
    return access(program.c_str(), X_OK) == 0 ? program.string() : "";
}

std::vector<std::string> ProgramDirectories() {
    const char* const path = std::getenv("PATH");
    std::vector<std::string> directories;
    std::istringstream stream(path == nullptr ? "" : path);
    for (std::string directory; std::getline(stream, directory, ':');) directories.push_back(directory);
    return directories;
}

std::string TextOfTheSystem() {
    return "/etc/os-release";
}

std::string OutputOf(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw FileFailure(command[0], errno);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failed = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char piece[65536];
    ssize_t count = 0;
    while (failed == 0 &&
           ((count = read(ends[0], piece, sizeof piece)) > 0 || (count < 0 && errno == EINTR))) {
        if (count > 0) output.append(piece, static_cast<std::size_t>(count));
    }
    close(ends[0]);
    if (failed != 0) throw FileFailure(command[0], failed);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0 && output.empty()) throw Failure(command[0] + " failed");
    return output;
}

BackgroundProgram::BackgroundProgram(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw FileFailure("pipe", errno);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t process = 0;
    const int failure = posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0) {
        close(ends[0]);
        throw FileFailure(command[0], failure);
    }
    mProcess = process;
    std::FILE* const output = fdopen(ends[0], "r");
    char line[256] = "";
    const bool isTold = std::fgets(line, sizeof line, output) != nullptr;
    std::fclose(output);
    if (!isTold) {
        End();
        throw Failure(command[0] + " does not start");
    }
    mFirstLine = line;
    mFirstLine.erase(mFirstLine.find_last_not_of('\n') + 1);
}

BackgroundProgram::~BackgroundProgram() {
    End();
}

void BackgroundProgram::End() const {
    const auto process = static_cast<pid_t>(mProcess);
    kill(process, SIGKILL);
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}
