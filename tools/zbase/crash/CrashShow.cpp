#include "CrashCommands.h"
#include "DumpedModules.h"
#include "SymbolSizes.h"
#include "tools/system/Files.h"
#include "tools/system/Programs.h"
#include "tools/zbase/dumps/CrashDumps.h"
#include "tools/zbase/terminal/Console.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string_view>

namespace {

namespace fs = std::filesystem;

// The path of one of Breakpad's tools: installed or built with this command, or from PATH.
std::string Tool(const char* name) {
    const fs::path own = ProgramDirectory();
    std::vector<std::string> places{(own / ZBASE_WAY_TO_BREAKPAD).string(), (own / "breakpad").string()};
    for (const std::string& place : ProgramDirectories()) places.push_back(place);
    for (const std::string& place : places) {
        std::string tool = ProgramIn(place, name);
        if (!tool.empty()) return tool;
    }
    throw Failure(std::string(name) + " is not installed: it comes with Breakpad");
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

/// A directory of symbol files, removed at the end.
class SymbolStore {
public:
    const fs::path& Place() const { return mDirectory.Path(); }

    // A module without symbols is shown without them. A pipe would be waited for.
    void Add(const std::string& module) const {
        std::error_code none;
        if (!fs::is_regular_file(module, none)) return;
        try {
            const std::string symbols = WithSymbolSizes(OutputOf({Tool("dump_syms"), module}), module);
            const std::vector<std::string> header = Split(symbols.substr(0, symbols.find('\n')), ' ');
            if (header.size() >= 5) Write(header[4], header[3], symbols);
        } catch (const Failure&) {
        }
    }

    // Of an image of Windows, under the name and the identifier of its symbols.
    void AddImage(const std::string& file, const std::string& name, const std::string& id) const {
        try {
            const std::string image = ReadFile(file);
            const std::string symbols = SymbolsOfImage(image, PdbBeside(file, image), name, id);
            if (!symbols.empty() && !name.empty() && !id.empty()) Write(name, id, symbols);
        } catch (const Failure&) {
        }
    }

    // A file of this directory.
    fs::path Keep(const char* name, const std::string& content) const {
        std::ofstream(Place() / name, std::ios::binary) << content;
        return Place() / name;
    }

private:
    // The content of the image's PDB file; empty if it is not there.
    static std::string PdbBeside(const std::string& file, const std::string& image) {
        const std::string name = PdbOfImage(image);
        const fs::path pdb = fs::path(file).parent_path() / name;
        std::error_code none;
        return !name.empty() && fs::is_regular_file(pdb, none) ? ReadFile(pdb.string()) : "";
    }

    // The name comes from a file that anybody may have made.
    void Write(const std::string& name, const std::string& id, const std::string& symbols) const {
        if (name.find_first_of("/\\:") != std::string::npos || name == "." || name == "..") return;
        const std::string base = name.ends_with(".pdb") ? name.substr(0, name.size() - 4) : name;
        const fs::path place = Place() / name / id;
        fs::create_directories(place);
        std::ofstream(place / (base + ".sym"), std::ios::binary) << symbols;
    }

    TemporaryDirectory mDirectory{"zbase-symbols"};
};

/// The output of Breakpad's reader, a line of fields each.
struct Walk {
    std::string reason;
    std::string address;
    std::string thread;                                           // the crashed one
    std::vector<std::vector<std::string>> frames;                 // its own
    std::map<int, std::vector<std::vector<std::string>>> others;  // of the other threads, by their numbers
    std::vector<std::vector<std::string>> modules;
};

Walk WalkDump(const std::string& dump, const fs::path& symbols) {
    Walk walk;
    for (const std::string& line :
         Split(OutputOf({Tool("minidump_stackwalk"), "-m", dump, symbols.string()}), '\n')) {
        std::vector<std::string> fields = Split(line, '|');
        fields.resize(std::max<std::size_t>(fields.size(), 7));
        if (fields[0] == "Crash") {
            walk.reason = fields[1];
            walk.address = fields[2];
            walk.thread = fields[3];
        } else if (fields[0] == "Module") {
            walk.modules.push_back(fields);
        } else if (!walk.thread.empty() && fields[0] == walk.thread) {
            walk.frames.push_back(fields);
        } else if (!fields[0].empty() && fields[0].find_first_not_of("0123456789") == std::string::npos) {
            walk.others[std::atoi(fields[0].c_str())].push_back(fields);
        }
    }
    // Files of data that are mapped have no identifier of code. In some dumps nothing has one.
    const auto isData = [](const std::vector<std::string>& fields) {
        return fields[4].find_first_not_of('0') == std::string::npos;
    };
    if (!std::all_of(walk.modules.begin(), walk.modules.end(), isData)) std::erase_if(walk.modules, isData);
    return walk;
}

std::uint64_t Address(const std::string& text) {
    return std::strtoull(text.c_str(), nullptr, 16);
}

// The files of the modules, by their addresses: several may have one name. A quote may belong to a path.
std::map<std::uint64_t, std::string> FilesOfModules(const std::string& dump) {
    constexpr std::string_view kAddress = "  base_of_image";
    std::map<std::uint64_t, std::string> files;
    std::uint64_t address = 0;
    for (const std::string& line : Split(OutputOf({Tool("minidump_dump"), dump}), '\n')) {
        if (line.starts_with(kAddress)) address = Address(line.substr(line.find('=') + 1));
        const std::size_t first = line.find('"');
        const std::size_t last = line.rfind('"');
        if (line.find("(code_file)") == std::string::npos || first == last) continue;
        files.emplace(address, line.substr(first + 1, last - first - 1));
    }
    return files;
}

// Texts of a process may contain control characters. Further lines are aligned under the first.
std::string Line(const std::string& text) {
    std::string line;
    std::string_view rest(text.data(), text.find_last_not_of("\r\n") + 1);
    while (true) {
        const std::size_t end = rest.find_first_of("\n\t");
        line += Shown(rest.substr(0, end));
        if (end == std::string_view::npos) return line;
        line += rest[end] == '\n' ? "\n    " : "\t";
        rest.remove_prefix(end + 1);
    }
}

void PrintFrame(const std::vector<std::string>& frame) {
    std::string where = frame[3].empty() ? frame[6] : frame[3];
    if (!frame[4].empty()) where += "  " + frame[4] + ":" + frame[5];
    Print("  " + Shown(frame[1]) + "\t" + (frame[2].empty() ? "?" : Shown(frame[2])) + "\t" + Shown(where) +
          "\n");
}

// The number of a thread, and its id and name if the dump has them.
std::string NameOf(const DumpedReport& report, const std::string& number) {
    const auto index = static_cast<std::size_t>(std::strtoul(number.c_str(), nullptr, 10));
    if (number.empty() || index >= report.threads.size()) return Shown(number);
    const DumpedThread& thread = report.threads[index];
    const std::string name = Line(thread.name);
    return Shown(number) + " (" + std::to_string(thread.id) + (name.empty() ? "" : ", " + name) + ")";
}

// The file of an image that a dump names: there, where Wine has that place, or beside the dump. Another image
// of the same name is not it.
std::string FileOfImage(const std::string& named, const ImageIdentity& identity, const fs::path& dump) {
    std::string elsewhere = named;
    std::replace(elsewhere.begin(), elsewhere.end(), '\\', '/');
    const bool isBelowRoot = elsewhere.starts_with("Z:/") || elsewhere.starts_with("z:/");
    const std::string name = elsewhere.substr(elsewhere.find_last_of('/') + 1);
    for (const fs::path& file :
         {fs::path(named), fs::path(isBelowRoot ? elsewhere.substr(2) : ""), dump.parent_path() / name}) {
        std::error_code none;
        if (!fs::is_regular_file(file, none)) continue;
        try {
            if (IdentityOfImage(ReadFile(file.string())) == identity) return file.string();
        } catch (const Failure&) {
        }
    }
    return "";
}

// With `hasAll` all threads, else the crashed one. Of an incomplete dump shows what there is, and then fails.
int Show(const std::string& named, bool hasAll) {
    const DumpedReport report = ReportOfDump(named);
    const SymbolStore store;  // empty yet
    const std::map<std::string, ImageIdentity> images = ImagesInDump(ReadFile(named));
    const std::string dump =
        images.empty() ? named : store.Keep("dump", WithModuleIdentifiers(ReadFile(named))).string();
    Walk walk = WalkDump(dump, store.Place());
    const std::map<std::uint64_t, std::string> files = FilesOfModules(dump);
    const auto fileOf = [&files](const std::vector<std::string>& module) {
        const auto file = files.find(Address(module[5]));
        return file == files.end() ? "" : file->second;
    };
    std::set<std::string> shown;
    const auto addImage = [&](const std::vector<std::string>& module) {
        const auto image = images.find(fileOf(module));
        if (image == images.end()) return;
        const std::string file = FileOfImage(image->first, image->second, named);
        if (!file.empty()) store.AddImage(file, module[3], module[4]);
    };
    const auto addSymbols = [&](const std::vector<std::vector<std::string>>& frames) {
        for (const auto& frame : frames) {
            if (frame[2].empty() || !shown.insert(frame[2]).second) continue;
            for (const auto& module : walk.modules) {
                if (module[1] != frame[2]) continue;
                if (images.empty()) {
                    store.Add(fileOf(module));
                } else {
                    addImage(module);
                }
            }
        }
    };
    // Without symbols the frames of images of Windows are guesses: each walk with some more finds others.
    const std::size_t walks = images.empty() ? 1 : 4;
    for (std::size_t known = 0, i = 0; i != walks; ++i, known = shown.size()) {
        addSymbols(walk.frames);
        for (const auto& [number, frames] : walk.others) {
            if (hasAll) addSymbols(frames);
        }
        if (i != 0 && known == shown.size()) break;
        walk = WalkDump(dump, store.Place());
    }

    Print(Styled(walk.reason.empty() ? "no crash" : Shown(walk.reason), "1") + " at " + Shown(walk.address) +
          ", thread " + NameOf(report, walk.thread) + "\n");
    for (const auto& frame : walk.frames) PrintFrame(frame);
    for (const auto& [number, frames] : walk.others) {
        if (!hasAll) break;
        Print("Thread " + NameOf(report, std::to_string(number)) + "\n");
        for (const auto& frame : frames) PrintFrame(frame);
    }
    if (report.hasKeys || report.isDump) Print(report.hasKeys ? "Crash keys\n" : "No crash keys\n");
    for (const auto& [name, value] : report.keys) Print("  " + Line(name + "=" + value) + "\n");
    if (!report.notes.empty()) Print("Notes\n");
    for (const std::string& note : report.notes) Print("  " + Line(note) + "\n");
    Print("Modules\n");
    for (const auto& module : walk.modules) {
        const std::string file = fileOf(module);
        Print("  " + Shown(module[5]) + "  " + Shown(file.empty() ? module[1] : file) + "\n");
    }
    if (report.isDump) return 0;
    FinishOutput();
    throw Failure(named + ": no whole dump");
}

}  // namespace

void AddCrashShowCommand(Command& crash) {
    Command show = crash.AddCommand("show", "Show the reason, the stack and the crash keys of a dump");
    const auto dump = std::make_shared<std::string>();
    const auto hasAll = std::make_shared<bool>(false);
    show.AddOption("DUMP", *dump, "The dump").Required();
    show.AddFlag("--all", *hasAll, "Show the stacks of all threads, with their names");
    show.Runs([dump, hasAll] { return Show(*dump, *hasAll); });
}
