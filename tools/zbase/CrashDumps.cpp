#include "CrashDumps.h"
#include "Console.h"

#include <Base/crash/detail/CrashKeysBlock.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>

extern char** environ;

namespace fs = std::filesystem;
using ZBase::detail::CrashKeysBlock;

namespace {

// The head of a minidump, and what its directory says of each stream.
struct DumpHead {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t streams;
    std::uint32_t directory;  // where it stands
    std::uint32_t others[4];
};
struct DumpStream {
    std::uint32_t type;
    std::uint32_t size;
    std::uint32_t place;
};
constexpr std::uint32_t kDumpMagic = 0x504D444D;
constexpr std::uint32_t kNeededStreams[] = {3, 4, 5};  // threads, modules, memory
constexpr std::uint32_t kMostStreams = 256;

// A dump that failed may be an empty file, or one without its later streams.
bool IsWholeDump(const std::string& content) {
    DumpHead head{};
    if (content.size() < sizeof head) return false;
    std::memcpy(&head, content.data(), sizeof head);
    if (head.magic != kDumpMagic || head.streams > kMostStreams) return false;
    std::set<std::uint32_t> types;
    for (std::uint32_t i = 0; i != head.streams; ++i) {
        DumpStream stream{};
        const std::size_t at = head.directory + i * sizeof stream;
        if (at > content.size() || content.size() - at < sizeof stream) return false;
        std::memcpy(&stream, &content[at], sizeof stream);
        if (stream.place > content.size() || content.size() - stream.place < stream.size) return false;
        types.insert(stream.type);
    }
    return std::all_of(std::begin(kNeededStreams), std::end(kNeededStreams),
                       [&](std::uint32_t type) { return types.contains(type); });
}

// Names and values of the block that counts, and its head; its sequence stays 0 if there is none.
std::string NewestFields(const std::string& content, CrashKeysBlock& newest) {
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
    return fields;
}

}  // namespace

std::vector<fs::path> DumpsIn(const fs::path& directory) {
    std::vector<fs::path> dumps;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(directory, none)) {
        if (entry.path().extension() == ".dmp") dumps.push_back(entry.path());
    }
    std::sort(dumps.begin(), dumps.end());
    return dumps;
}

DumpedReport ReportOfDump(const fs::path& dump) {
    const std::string content = ReadFile(dump);
    DumpedReport report;
    report.isDump = IsWholeDump(content);
    CrashKeysBlock newest{};
    const std::string fields = NewestFields(content, newest);
    report.hasKeys = newest.sequence != 0;
    report.isForProduction = newest.production == 1;
    if (newest.hanging == 1) report.keys["reason"] = "hanging";
    for (std::size_t at = 0; at < fields.size();) {
        const std::string name = &fields[at];
        at = std::min(fields.size(), at + name.size() + 1);
        const std::string value = fields.c_str() + at;
        at += value.size() + 1;
        report.keys[name] = value;
    }
    return report;
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
