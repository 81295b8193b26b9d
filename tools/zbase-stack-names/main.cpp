// zbase-stack-names: adds the names of functions and lines to a file of stacks. The library starts it in a
// process that hangs, where any lock may be held, and passes it the path of the file, terminated by a zero,
// on the standard input. It replaces the file by a new one and replies "1". With a path as its argument it
// does the same by hand, also for a file that was left without names.

#include <cxxabi.h>
#include <elfutils/libdwelf.h>
#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace {

namespace fs = std::filesystem;

char* gpPlaces = nullptr;  // the default places of debug files

std::string Demangle(const char* name) {
    int status = 0;
    const std::string bare(name, std::strcspn(name, "@"));  // without its version
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(bare.c_str(), nullptr, nullptr, &status), std::free);
    return text == nullptr ? bare : text.get();
}

std::string Hexadecimal(std::uint64_t value) {
    char text[20];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

/// The names in the file of one module, by the addresses in it.
class Names {
public:
    /// Without names if the file is missing or has another build id.
    Names(const std::string& path, const std::string& id, const std::string& process) {
        mCallbacks.find_elf = [](Dwfl_Module*, void**, const char*, Dwarf_Addr, char**, Elf**) { return -1; };
        mCallbacks.find_debuginfo = dwfl_standard_find_debuginfo;
        mCallbacks.section_address = dwfl_offline_section_address;
        mCallbacks.debuginfo_path = &gpPlaces;
        // A running program can be opened even if it was replaced or deleted.
        if (Open(path, id) || Open("/proc/" + process + "/exe", id)) IndexUnits();
    }
    ~Names() { dwfl_end(mpDwfl); }
    Names(const Names&) = delete;
    Names& operator=(const Names&) = delete;

    /// " <function>+0x<displacement> at <file>:<line>" as far as known. A return address is that of the
    /// instruction after the call, which may be in another line or function.
    std::string Of(std::uint64_t address, bool isReturn) const {
        const Dwarf_Addr place = address - (isReturn ? 1 : 0) + mBias;
        GElf_Off offset = 0;
        GElf_Sym symbol{};
        const char* const name = mpModule == nullptr ? nullptr
                                                     : dwfl_module_addrinfo(mpModule, place, &offset, &symbol,
                                                                            nullptr, nullptr, nullptr);
        if (name == nullptr) return "";
        std::string text = Demangle(name);
        text.insert(0, 1, ' ').append("+").append(Hexadecimal(offset + (isReturn ? 1 : 0)));
        return text.append(LineOf(place));
    }

private:
    bool Open(const std::string& path, const std::string& id) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) return false;
        mpDwfl = dwfl_begin(&mCallbacks);
        if (mpDwfl != nullptr) {
            dwfl_report_begin(mpDwfl);
            mpModule = dwfl_report_elf(mpDwfl, path.c_str(), path.c_str(), file, 0, true);
            dwfl_report_end(mpDwfl, nullptr, nullptr);
        }
        if (mpModule == nullptr) close(file);
        if (mpModule != nullptr && dwfl_module_getelf(mpModule, &mBias) != nullptr && IdOf(mpModule) == id)
            return true;
        dwfl_end(mpDwfl);
        mpDwfl = nullptr;
        mpModule = nullptr;
        return false;
    }

    static std::string IdOf(Dwfl_Module* module) {
        const unsigned char* octets = nullptr;
        GElf_Addr place = 0;
        const int size = dwfl_module_build_id(module, &octets, &place);
        std::string id;
        for (int i = 0; i < size; ++i) {
            char text[3];
            std::snprintf(text, sizeof text, "%02x", static_cast<unsigned int>(octets[i]));
            id += text;
        }
        return id.empty() ? "-" : id;
    }

    // Some compilers write no index from addresses to compilation units, so it is built here.
    void IndexUnits() {
        Dwarf_Addr bias = 0;
        for (Dwarf_Die* unit = nullptr; (unit = dwfl_module_nextcu(mpModule, unit, &bias)) != nullptr;) {
            Dwarf_Addr base = 0;
            Dwarf_Addr start = 0;
            Dwarf_Addr end = 0;
            for (std::ptrdiff_t next = 0; (next = dwarf_ranges(unit, next, &base, &start, &end)) > 0;)
                mUnits[start + bias] = {end + bias, bias, unit};
        }
    }

    std::string LineOf(Dwarf_Addr place) const {
        const auto next = mUnits.upper_bound(place);
        if (next == mUnits.begin() || place >= std::prev(next)->second.end) return "";
        const Unit& unit = std::prev(next)->second;
        int number = 0;
        Dwarf_Line* const line = dwarf_getsrc_die(unit.die, place - unit.bias);
        const char* const file = line == nullptr ? nullptr : dwarf_linesrc(line, nullptr, nullptr);
        if (file == nullptr || dwarf_lineno(line, &number) != 0) return "";
        return std::string(" at ").append(file).append(":").append(std::to_string(number));
    }

    struct Unit {
        Dwarf_Addr end;
        Dwarf_Addr bias;
        Dwarf_Die* die;  // owned by the session
    };

    Dwfl_Callbacks mCallbacks{};
    Dwfl* mpDwfl = nullptr;
    Dwfl_Module* mpModule = nullptr;  // null if nothing could be read
    Dwarf_Addr mBias = 0;
    std::map<Dwarf_Addr, Unit> mUnits;  // by the start of each of their ranges
};

using BuildIds = std::map<std::string, std::string>;  // by path

BuildIds ReadBuildIds(const std::string& text) {
    BuildIds ids;
    const std::size_t start = text.rfind("\nModules\n");
    std::istringstream lines(start == std::string::npos ? "" : text.substr(start + 9));
    std::string first, last, id, path;
    while (lines >> first >> last >> id && std::getline(lines >> std::ws, path)) ids[path] = id;
    return ids;
}

class StackNames {
public:
    explicit StackNames(const std::string& text)
        : mIds(ReadBuildIds(text)), mProcess(text.substr(0, text.find(','))) {
        mProcess.erase(0, mProcess.rfind(' ') + 1);
    }

    /// The text to append to the line of a frame, " 0x<address> <module>+0x<offset>"; empty for others.
    std::string For(const std::string& line, bool isInnermost) {
        constexpr std::size_t kPath = 21;
        const std::size_t plus = line.rfind("+0x");
        if (!line.starts_with("  0x") || line.size() < kPath || plus == std::string::npos || plus < kPath)
            return "";
        std::uint64_t offset = 0;
        const char* const digits = line.c_str() + plus + 3;
        if (std::from_chars(digits, line.c_str() + line.size(), offset, 16).ptr != line.c_str() + line.size())
            return "";
        const std::string path = line.substr(kPath, plus - kPath);
        const auto id = mIds.find(path);
        if (id == mIds.end()) return "";
        std::unique_ptr<Names>& names = mNames[path];
        if (names == nullptr) names = std::make_unique<Names>(path, id->second, mProcess);
        return names->Of(offset, !isInnermost);
    }

private:
    BuildIds mIds;
    std::string mProcess;
    std::map<std::string, std::unique_ptr<Names>> mNames;  // by path
};

bool AddNames(const fs::path& given) {
    std::error_code failed;
    const fs::path path = fs::canonical(given, failed);
    std::ifstream input(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(input), {}};
    if (failed || !input || !text.starts_with("Stacks of process ")) return false;
    StackNames names(text);
    std::string result;
    std::istringstream lines(text);
    bool isInnermost = false;
    for (std::string line; std::getline(lines, line);) {
        result.append(line).append(names.For(line, isInnermost)).append("\n");
        isInnermost = line.starts_with("Thread ");
    }
    const fs::path fresh = path.string() + ".names";
    {
        std::ofstream output(fresh, std::ios::binary);
        fs::permissions(fresh, fs::status(path).permissions(), failed);
        output << result;
        if (!output.flush()) return fs::remove(fresh, failed) && false;
    }
    fs::rename(fresh, path, failed);
    return !failed;
}

std::string ReadPath() {
    std::string path;
    char letter = 0;
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, &letter, 1);
        if (count == 1 && letter != 0)
            path += letter;
        else if (count >= 0 || errno != EINTR)
            return path;
    }
}

}  // namespace

int main(int argc, char** argv) {
    unsetenv("DEBUGINFOD_URLS");  // no downloads
    if (argc == 2) return AddNames(argv[1]) ? 0 : 1;
    const char answer = AddNames(ReadPath()) ? '1' : '0';
    return write(STDIN_FILENO, &answer, 1) == 1 ? 0 : 1;
}
