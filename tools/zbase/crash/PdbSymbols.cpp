#include "PdbSymbols.h"
#include "Octets.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <string_view>
#include <utility>

// A PDB file is a file of streams, whose blocks are scattered. One stream tells what it is, one lists the
// modules that were linked, and each of these has a stream with its functions and lines. Names of files are
// in a stream for all.

namespace {

constexpr std::string_view kMagic(
    "Microsoft C/C++ MSF 7.00\r\n\x1A"
    "DS\0\0\0",
    32);
constexpr std::size_t kInformation = 1;  // streams that are always there
constexpr std::size_t kModules = 3;
constexpr std::size_t kLongestName = 4096;

constexpr std::uint16_t kPublic = 0x110E;  // kinds of symbols
constexpr std::uint16_t kFunctions[] = {0x110F, 0x1110, 0x1146, 0x1147};
constexpr std::uint32_t kLines = 0xF2;  // parts of what follows a module's symbols
constexpr std::uint32_t kFiles = 0xF4;

std::size_t Aligned(std::size_t size) {
    return (size + 3) / 4 * 4;
}

class Streams {
public:
    explicit Streams(const std::string& content) : mContent(content), mLeft(content.size()) {
        if (!content.starts_with(kMagic)) return;
        mBlock = mContent.Number<std::uint32_t>(32);
        if (mBlock < 512 || mBlock > 65536) return;
        const std::size_t list = std::size_t{mContent.Number<std::uint32_t>(52)} * mBlock;
        mDirectory = Gather(mContent, list, mContent.Number<std::uint32_t>(44));
        const Octets directory(mDirectory);
        const std::size_t count =
            std::min<std::size_t>(directory.Number<std::uint32_t>(0), directory.Size() / 4);
        std::size_t place = 4 + count * 4;
        for (std::size_t i = 0; i != count; ++i) {
            constexpr std::uint32_t kNone = 0xFFFFFFFF;
            const auto size = directory.Number<std::uint32_t>(4 + i * 4);
            mStreams.emplace_back(place, size == kNone ? 0 : size);
            place += Blocks(mStreams.back().second) * 4;
        }
    }

    /// Empty if there is none. Each is to be asked for once.
    std::string Stream(std::size_t number) {
        if (number >= mStreams.size()) return "";
        return Gather(Octets(mDirectory), mStreams[number].first, mStreams[number].second);
    }

private:
    std::size_t Blocks(std::size_t size) const { return (size + mBlock - 1) / mBlock; }

    // All together have no more octets than the file; a damaged one may name its blocks again and again.
    std::string Gather(const Octets& list, std::size_t at, std::size_t size) {
        if (size > mLeft) return "";
        mLeft -= size;
        std::string gathered;
        for (std::size_t i = 0; i != Blocks(size); ++i) {
            const std::size_t block = list.Number<std::uint32_t>(at + i * 4);
            gathered += mContent.Part(block * mBlock, std::min(mBlock, size - i * mBlock)).Content();
        }
        return gathered;
    }

    Octets mContent;
    std::size_t mLeft;
    std::size_t mBlock = 0;
    std::string mDirectory;
    std::vector<std::pair<std::size_t, std::size_t>> mStreams;  // places of their blocks' numbers, and sizes
};

/// Calls `visit(kind, record)` for each symbol.
template <class Visit>
void VisitSymbols(const Octets& symbols, Visit visit) {
    for (std::size_t at = 0; at + 4 <= symbols.Size();) {
        const std::size_t size = std::size_t{symbols.Number<std::uint16_t>(at)} + 2;
        if (size < 4) return;
        visit(symbols.Number<std::uint16_t>(at + 2), symbols.Part(at, size));
        at += size;
    }
}

/// Calls `visit(kind, part)` for each part of what follows a module's symbols.
template <class Visit>
void VisitParts(const Octets& parts, Visit visit) {
    for (std::size_t at = 0; at + 8 <= parts.Size();) {
        const std::size_t size = parts.Number<std::uint32_t>(at + 4);
        visit(parts.Number<std::uint32_t>(at), parts.Part(at + 8, size));
        at += 8 + Aligned(size);
    }
}

/// The names of files that all modules share, and which of them a module's tables mean.
class Files {
public:
    Files(std::string texts, std::vector<std::string>& files) : mTexts(std::move(texts)), mFiles(files) {}

    /// By the place in a module's table of files.
    std::size_t Number(const Octets& table, std::uint32_t place) {
        constexpr std::size_t kTexts = 12;  // where they begin
        const auto text = table.Number<std::uint32_t>(place);
        const auto [known, isNew] = mNumbers.emplace(text, mFiles.size());
        const Octets texts(mTexts);
        // Else a damaged table could make many long names of one.
        const bool isStart = text == 0 || texts.Number<char>(kTexts + text - 1) == 0;
        if (isNew) mFiles.emplace_back(isStart ? texts.Text(kTexts + text, kLongestName) : "");
        return known->second;
    }

private:
    std::string mTexts;
    std::vector<std::string>& mFiles;
    std::map<std::uint32_t, std::size_t> mNumbers;
};

using Place = std::pair<std::uint16_t, std::uint32_t>;  // section and offset
using Lines = std::map<Place, PdbLine>;

/// Adds the lines of a range of code. Those of each file stand together; code that no line is for is marked.
void AddLines(const Octets& range, const Octets& files, Files& names, Lines& lines) {
    constexpr std::uint32_t kNumber = 0xFFFFFF;
    constexpr std::uint32_t kHidden[] = {0xFEEFEE, 0xF00F00};
    const auto start = range.Number<std::uint32_t>(0);
    const auto section = range.Number<std::uint16_t>(4);
    const auto size = range.Number<std::uint32_t>(8);
    std::map<std::uint32_t, PdbLine> found;
    for (std::size_t at = 12; at + 12 <= range.Size();) {
        const std::size_t file = names.Number(files, range.Number<std::uint32_t>(at));
        const std::size_t octets = range.Number<std::uint32_t>(at + 8);
        if (octets < 12) break;
        const std::size_t count = std::min<std::size_t>(range.Number<std::uint32_t>(at + 4),
                                                        (range.Part(at, octets).Size() - 12) / 8);
        for (std::size_t i = 0; i != count; ++i) {
            const auto offset = range.Number<std::uint32_t>(at + 12 + i * 8);
            const std::uint32_t number = range.Number<std::uint32_t>(at + 16 + i * 8) & kNumber;
            if (offset < size &&
                std::find(std::begin(kHidden), std::end(kHidden), number) == std::end(kHidden))
                found[offset] = {start + offset, 0, number, file};
        }
        at += octets;
    }
    for (auto line = found.begin(); line != found.end(); ++line) {
        const auto next = std::next(line);
        line->second.size = (next == found.end() ? size : next->first) - line->first;
        lines[{section, line->second.offset}] = line->second;
    }
}

/// Takes its lines, so that each goes to one function.
PdbFunction FunctionOf(const Octets& symbol, Lines& lines) {
    PdbFunction function{symbol.Number<std::uint16_t>(36),
                         symbol.Number<std::uint32_t>(32),
                         symbol.Number<std::uint32_t>(16),
                         std::string(symbol.Text(39, kLongestName)),
                         {}};
    auto line = lines.lower_bound({function.section, function.offset});
    while (line != lines.end() && line->first.first == function.section &&
           line->first.second - function.offset < function.size) {
        function.lines.push_back(line->second);
        line = lines.erase(line);
    }
    return function;
}

/// A module, by its entry in the list.
void AddModule(const Octets& entry, const std::string& content, Files& names, PdbSymbols& found) {
    const Octets stream(content);
    const std::size_t symbols = entry.Number<std::uint32_t>(36);
    const std::size_t older = entry.Number<std::uint32_t>(40);
    const Octets parts = stream.Part(symbols + older, entry.Number<std::uint32_t>(44));
    Octets files;
    VisitParts(parts, [&](std::uint32_t kind, const Octets& part) {
        if (kind == kFiles) files = part;
    });
    Lines lines;
    VisitParts(parts, [&](std::uint32_t kind, const Octets& part) {
        if (kind == kLines) AddLines(part, files, names, lines);
    });
    VisitSymbols(
        stream.Part(4, symbols < 4 ? 0 : symbols - 4), [&](std::uint16_t kind, const Octets& symbol) {
            if (std::find(std::begin(kFunctions), std::end(kFunctions), kind) != std::end(kFunctions))
                found.functions.push_back(FunctionOf(symbol, lines));
        });
}

/// The number of the stream of this name; that of no stream, if none has it.
std::size_t NamedStream(const Octets& information, std::string_view name) {
    constexpr std::size_t kTexts = 32;
    const std::size_t size = information.Number<std::uint32_t>(28);
    const Octets texts = information.Part(kTexts, size);
    std::size_t at = kTexts + size;
    const std::size_t count = information.Number<std::uint32_t>(at);
    at += 8;
    for (int set = 0; set != 2; ++set)  // which places of the table are taken, and which were
        at += 4 + std::size_t{information.Number<std::uint32_t>(at)} * 4;
    for (std::size_t i = 0; i != count && at + 8 <= information.Size(); ++i, at += 8)
        if (texts.Text(information.Number<std::uint32_t>(at), name.size() + 1) == name)
            return information.Number<std::uint32_t>(at + 4);
    return std::numeric_limits<std::size_t>::max();
}

}  // namespace

PdbSymbols ReadPdb(const std::string& content, const PdbIdentity& identity) {
    Streams streams(content);
    const std::string information = streams.Stream(kInformation);
    const std::string list = streams.Stream(kModules);
    const Octets header(list);
    PdbIdentity own{{}, header.Number<std::uint32_t>(8)};
    Octets(information).Part(12, own.guid.size()).Content().copy(own.guid.data(), own.guid.size());
    PdbSymbols found;
    if (information.empty() || own != identity) return found;

    Files names(streams.Stream(NamedStream(Octets(information), "/names")), found.files);
    constexpr std::size_t kHeader = 64, kEntry = 64;
    const Octets modules = header.Part(kHeader, header.Number<std::uint32_t>(24));
    std::set<std::size_t> read;
    for (std::size_t at = 0; at + kEntry <= modules.Size();) {
        constexpr std::uint16_t kNone = 0xFFFF;
        const Octets entry = modules.Part(at, kEntry);
        const std::size_t stream = entry.Number<std::uint16_t>(34);
        if (stream != kNone && read.insert(stream).second)
            AddModule(entry, streams.Stream(stream), names, found);
        for (int text = 0; text != 2; ++text)  // of the module and of the file that it came from
            at += modules.Text(at + kEntry, modules.Size()).size() + 1;
        at = Aligned(at + kEntry);
    }
    VisitSymbols(Octets(streams.Stream(header.Number<std::uint16_t>(20))), [&](std::uint16_t kind,
                                                                               const Octets& symbol) {
        constexpr std::uint32_t kIsFunction = 2;
        if (kind == kPublic && (symbol.Number<std::uint32_t>(4) & kIsFunction) != 0)
            found.names.push_back({symbol.Number<std::uint16_t>(12), symbol.Number<std::uint32_t>(8),
                                   std::string(symbol.Text(14, kLongestName))});
    });
    return found;
}
