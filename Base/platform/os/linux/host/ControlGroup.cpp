#include <Base/platform/os/linux/host/ControlGroup.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include <Base/platform/os/linux/files/WholeFile.h>

namespace ZBase::os {

namespace {

// Takes the text up to `end`; the rest stays.
std::string_view TakeUntil(std::string_view& text, char end) {
    const std::size_t at = std::min(text.find(end), text.size());
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(std::min(at + 1, text.size()));
    return taken;
}

// The number of a field; unlimited for "max" and for an invalid one.
std::uint64_t ReadNumber(std::string_view field) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(field.data(), field.data() + field.size(), number);
    return parsed.ec == std::errc() ? number : ControlGroup::kUnlimited;
}

// "max 100000" or "150000 100000": microseconds of processor time per period.
std::uint64_t ReadProcessors(std::string_view text) {
    const std::uint64_t quota = ReadNumber(TakeUntil(text, ' '));
    const std::uint64_t period = ReadNumber(TakeUntil(text, '\n'));
    if (quota == ControlGroup::kUnlimited || period == 0 || period == ControlGroup::kUnlimited)
        return ControlGroup::kUnlimited;
    return std::max<std::uint64_t>(1, quota / period + (quota % period == 0 ? 0 : 1));
}

// The path of the group in version 2, whose line begins with "0::"; empty if there is none.
std::string_view FindGroup(std::string_view groups) {
    while (!groups.empty()) {
        const std::string_view line = TakeUntil(groups, '\n');
        if (line.starts_with("0::")) return line.substr(3);
    }
    return {};
}

}  // namespace

ControlGroup::ControlGroup(std::string mount, std::string_view path) : mMount(std::move(mount)) {
    // A group outside of the mounted hierarchy has a path that begins with "/..".
    if (path != "/.." && !path.starts_with("/../")) mPath = path;
    while (mPath.ends_with('/')) mPath.pop_back();
}

ControlGroup ControlGroup::FromProcess(std::string_view groups, std::string_view mounts) {
    std::string_view path = FindGroup(groups);
    while (!path.empty() && !mounts.empty()) {
        std::string_view line = TakeUntil(mounts, '\n');
        if (line.find(" - cgroup2 ") == std::string_view::npos) continue;
        for (int i = 0; i != 3; ++i) TakeUntil(line, ' ');  // two ids and a device
        const std::string_view root = TakeUntil(line, ' ');
        const std::string_view mount = TakeUntil(line, ' ');
        if (root == "/") return {std::string(mount), path};
        const bool isBelow =
            path.starts_with(root) && (path.size() == root.size() || path[root.size()] == '/');
        return {std::string(mount), isBelow ? path.substr(root.size()) : std::string_view()};
    }
    return {std::string(), {}};
}

template <class Read>
std::uint64_t ControlGroup::Smallest(const char* file, Read read) const {
    std::uint64_t smallest = kUnlimited;
    if (mMount.empty()) return smallest;
    for (std::string path = mPath;; path.erase(path.rfind('/'))) {
        std::string content;
        if (ReadWholeFile((mMount + path + file).c_str(), content))
            smallest = std::min(smallest, read(content));
        if (path.rfind('/') == std::string::npos) return smallest;
    }
}

std::uint64_t ControlGroup::MemoryLimit() const {
    return Smallest("/memory.max", [](std::string_view text) { return ReadNumber(text); });
}

std::uint64_t ControlGroup::ProcessorLimit() const {
    return Smallest("/cpu.max", [](std::string_view text) { return ReadProcessors(text); });
}

}  // namespace ZBase::os
