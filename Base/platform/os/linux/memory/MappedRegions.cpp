#include <Base/platform/os/linux/memory/MappedRegions.h>

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace ZBase::os {

namespace {

std::string ReadMaps() {
    std::string text;
    const int file = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (file < 0) return text;
    const struct Close {
        int file;
        ~Close() { close(file); }
    } closing{file};
    for (;;) {
        constexpr std::size_t kPiece = 1 << 14;
        const std::size_t size = text.size();
        text.resize(size + kPiece);
        const ssize_t count = read(file, text.data() + size, kPiece);
        text.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count == 0 || (count < 0 && errno != EINTR)) return text;
    }
}

std::string_view TakeWord(std::string_view& line) {
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return word;
}

// start-end access offset device inode path
bool Parse(std::string_view line, MappedRegion& region) {
    const std::string range(TakeWord(line));
    char* end = nullptr;
    region.start = std::strtoull(range.c_str(), &end, 16);
    if (*end != '-') return false;
    region.end = std::strtoull(end + 1, nullptr, 16);
    for (int i = 0; i != 3; ++i) TakeWord(line);
    region.inode = std::strtoul(std::string(TakeWord(line)).c_str(), nullptr, 10);
    region.path = line;
    return true;
}

}  // namespace

bool VisitMappedRegions(const std::function<bool(const MappedRegion&)>& visit) {
    const std::string maps = ReadMaps();
    MappedRegion region{};
    for (std::string_view left = maps; !left.empty();) {
        const std::string_view line = left.substr(0, left.find('\n'));
        left.remove_prefix(std::min(line.size() + 1, left.size()));
        if (Parse(line, region) && visit(region)) return true;
    }
    return false;
}

bool FindMappedRegion(std::uintptr_t address, MappedRegion& region) {
    return VisitMappedRegions([&](const MappedRegion& each) {
        const bool isIt = address >= each.start && address < each.end;
        if (isIt) region = each;
        return isIt;
    });
}

}  // namespace ZBase::os
