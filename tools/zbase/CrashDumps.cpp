#include "CrashDumps.h"
#include "Console.h"

#include <Base/crash/detail/CrashKeysBlock.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace fs = std::filesystem;

std::vector<fs::path> DumpsIn(const fs::path& directory) {
    std::vector<fs::path> dumps;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(directory, none)) {
        if (entry.path().extension() == ".dmp") dumps.push_back(entry.path());
    }
    std::sort(dumps.begin(), dumps.end());
    return dumps;
}

bool KeysOfDump(const fs::path& dump, CrashKeys& keys) {
    using ZBase::detail::CrashKeysBlock;
    const std::string content = ReadFile(dump);
    CrashKeysBlock newest{};
    std::string fields;
    for (std::size_t at = 0; (at = content.find(ZBase::detail::kCrashKeysMagic, at)) != std::string::npos;
         ++at) {
        CrashKeysBlock block{};
        if (content.size() - at < sizeof block) break;
        std::memcpy(&block, &content[at], sizeof block);
        const bool isWhole = block.size <= content.size() - at - sizeof block;
        if (!isWhole || block.sequence <= newest.sequence) continue;
        newest = block;
        fields = content.substr(at + sizeof block, block.size);
    }
    if (newest.sequence == 0) return false;
    if (newest.hanging == 1) keys["reason"] = "hanging";
    for (std::size_t at = 0; at < fields.size();) {
        const std::string name = &fields[at];
        at = std::min(fields.size(), at + name.size() + 1);
        const std::string value = fields.c_str() + at;
        at += value.size() + 1;
        keys[name] = value;
    }
    return true;
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
