#include "tools/system/SecondProcess.h"
#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>

extern char** environ;

namespace {

/// Both ends of a pipe, each closed at the end of its scope at the latest.
class Pipe {
public:
    Pipe() {
        if (pipe2(mEnds, O_CLOEXEC) != 0) throw FileFailure("pipe", errno);
    }
    ~Pipe() {
        CloseReading();
        CloseWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int Reading() const { return mEnds[0]; }
    int Writing() const { return mEnds[1]; }
    void CloseReading() { Close(mEnds[0]); }
    void CloseWriting() { Close(mEnds[1]); }

private:
    static void Close(int& end) {
        if (end >= 0) close(end);
        end = -1;
    }

    int mEnds[2];
};

pid_t Spawn(const std::vector<std::string>& arguments, const Pipe& input, const Pipe& output) {
    std::vector<char*> pointers{const_cast<char*>("zbase")};
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.Reading(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.Writing(), STDOUT_FILENO);
    pid_t process = 0;
    const std::string program = ThisProgram();
    const int failure = posix_spawn(&process, program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw FileFailure(program, failure);
    return process;
}

// Writes and reads in turn, as the other side is ready, so that neither blocks the other.
std::string Exchange(Pipe& toChild, Pipe& fromChild, const std::string& input) {
    fcntl(toChild.Writing(), F_SETFL, O_NONBLOCK);
    std::string output;
    for (std::size_t written = 0;;) {
        if (written == input.size()) toChild.CloseWriting();
        pollfd ends[] = {{fromChild.Reading(), POLLIN, 0}, {toChild.Writing(), POLLOUT, 0}};
        if (poll(ends, 2, -1) < 0) {
            if (errno == EINTR) continue;
            throw FileFailure("pipe", errno);
        }
        if (ends[1].revents != 0) {
            const ssize_t count = write(toChild.Writing(), input.data() + written, input.size() - written);
            if (count > 0) written += static_cast<std::size_t>(count);
            if (count < 0 && errno != EAGAIN && errno != EINTR) written = input.size();  // no reader
        }
        if (ends[0].revents == 0) continue;
        char piece[65536];
        const ssize_t count = read(fromChild.Reading(), piece, sizeof piece);
        if (count == 0) return output;
        if (count > 0) output.append(piece, static_cast<std::size_t>(count));
        if (count < 0 && errno != EINTR) throw FileFailure("pipe", errno);
    }
}

}  // namespace

SecondProcess RunSecondProcess(const std::vector<std::string>& arguments, const std::string& input) {
    Pipe toChild;
    Pipe fromChild;
    const pid_t process = Spawn(arguments, toChild, fromChild);
    toChild.CloseReading();
    fromChild.CloseWriting();
    const std::string output = Exchange(toChild, fromChild, input);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw Failure("process " + std::to_string(process) + " failed");
    return {process, output};
}
