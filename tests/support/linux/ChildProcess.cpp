#include "tests/support/ChildProcess.h"

#include <TestPlaces.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "tests/support/System.h"

extern char** environ;

namespace test {

namespace {

/// An unnamed file that a child reads or writes instead of a pipe: no amount of output can block it. It is in
/// memory, so that a test of what a full disk does hears of it.
std::FILE* OpenScratchFile() {
    const int descriptor = memfd_create("scratch", 0);
    return descriptor < 0 ? std::tmpfile() : fdopen(descriptor, "w+");
}

class ScratchFile {
public:
    explicit ScratchFile(const std::string& content) : mpFile(OpenScratchFile()) {
        if (mpFile == nullptr || std::fwrite(content.data(), 1, content.size(), mpFile) != content.size() ||
            std::fflush(mpFile) != 0) {
            throw std::runtime_error("no scratch file");
        }
        std::rewind(mpFile);
    }
    ~ScratchFile() { std::fclose(mpFile); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    int Descriptor() const { return fileno(mpFile); }

    std::string Content() const {
        std::string content;
        std::rewind(mpFile);
        char piece[4096];
        while (const std::size_t count = std::fread(piece, 1, sizeof piece, mpFile))
            content.append(piece, count);
        return content;
    }

private:
    std::FILE* mpFile;  // owned
};

std::vector<std::string> MergedEnvironment(const std::vector<std::string>& changes) {
    const auto nameOf = [](const std::string& variable) { return variable.substr(0, variable.find('=')); };
    std::vector<std::string> merged;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        bool changed = false;
        for (const std::string& change : changes) changed = changed || nameOf(change) == nameOf(*variable);
        if (!changed) merged.emplace_back(*variable);
    }
    for (const std::string& change : changes) {
        if (change.find('=') != std::string::npos) merged.push_back(change);
    }
    return merged;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildResult RunChild(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                     const std::string& input) {
    std::optional<SpareDescriptors> spare(std::in_place);
    const ScratchFile in(input);
    const ScratchFile out("");
    const ScratchFile err("");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.Descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.Descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.Descriptor(), STDERR_FILENO);
    spare.reset();  // the child's limit is that of this process
    const std::vector<std::string> variables = MergedEnvironment(environment);
    pid_t child = 0;
    const int failed = posix_spawn(&child, command[0].c_str(), &actions, nullptr, Pointers(command).data(),
                                   Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error(command[0] + ": " + std::strerror(failed));

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            WIFSIGNALED(status) && WCOREDUMP(status), out.Content(), err.Content()};
}

std::string ChildProgram(const std::string& name) {
    return ZBASE_CHILDREN_DIR "/" + name;
}

}  // namespace test
