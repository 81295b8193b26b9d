#include "tests/support/BackgroundChild.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <optional>
#include <stdexcept>

#include "tests/support/System.h"

extern char** environ;

namespace test {

BackgroundChild::BackgroundChild(const std::vector<std::string>& program,
                                 const std::vector<std::string>& environment) {
    std::vector<std::string> command = program;
    if (!environment.empty()) {
        command.insert(command.begin(), environment.begin(), environment.end());
        command.insert(command.begin(), "/usr/bin/env");
    }
    std::optional<SpareDescriptors> spare(std::in_place);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    spare.reset();  // the child's limit is that of this process
    pid_t child = 0;
    const int failed = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    mChild = child;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    mOutput = ends[0];
    if (failed != 0) throw std::runtime_error(command[0] + " does not start");
}

BackgroundChild::~BackgroundChild() {
    if (mChild != 0) {
        kill(static_cast<pid_t>(mChild), SIGKILL);
        waitpid(static_cast<pid_t>(mChild), nullptr, 0);
    }
    close(static_cast<int>(mOutput));
}

std::string BackgroundChild::ReadLine() {
    std::string line;
    char letter = 0;
    while (read(static_cast<int>(mOutput), &letter, 1) == 1 && letter != '\n') line.push_back(letter);
    return line;
}

void BackgroundChild::Signal(int signal) const {
    kill(static_cast<pid_t>(mChild), signal);
}

int BackgroundChild::Wait() {
    int status = 0;
    while (waitpid(static_cast<pid_t>(mChild), &status, 0) < 0 && errno == EINTR) {
    }
    mChild = 0;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

}  // namespace test
