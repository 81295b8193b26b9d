#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>

extern char** environ;

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
