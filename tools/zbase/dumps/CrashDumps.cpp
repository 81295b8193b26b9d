#include "CrashDumps.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/detail/CrashContract.h>
#include <Base/crash/detail/CrashKeysBlock.h>
#include <Base/crash/detail/CrashNotesBlock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;
using ZBase::detail::CrashKeysBlock;
using ZBase::detail::CrashNotesBlock;

namespace {

// The head of a minidump, and a directory entry for a stream.
struct DumpHead {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t streams;
    std::uint32_t directory;  // its offset in the file
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

constexpr std::uint32_t kThreads = 3;
constexpr std::uint32_t kMemories = 5;
constexpr std::uint32_t kThreadNames = 24;
constexpr std::uint32_t kFirstOwnStream = 0x5A42'0001;  // where the system writes dumps, instead of memories
constexpr std::uint32_t kOwnStreams = 3;
constexpr std::size_t kThreadSize = 48;
constexpr std::size_t kMemorySize = 16;      // address, octets, and where they stand
constexpr std::size_t kThreadNameSize = 12;  // id, and where the name stands in 64 bits

using DumpStreams = std::map<std::uint32_t, DumpStream>;  // by their types

// Empty for a file that is not a dump, or lacks one of them.
DumpStreams StreamsOf(const std::string& content) {
    DumpHead head{};
    if (content.size() < sizeof head) return {};
    std::memcpy(&head, content.data(), sizeof head);
    if (head.magic != kDumpMagic || head.streams > kMostStreams) return {};
    DumpStreams streams;
    for (std::uint32_t i = 0; i != head.streams; ++i) {
        DumpStream stream{};
        const std::size_t at = head.directory + i * sizeof stream;
        if (at > content.size() || content.size() - at < sizeof stream) return {};
        std::memcpy(&stream, &content[at], sizeof stream);
        if (stream.place > content.size() || content.size() - stream.place < stream.size) return {};
        streams.emplace(stream.type, stream);
    }
    return streams;
}

// A failed dump may be an empty file, or lack its later streams.
bool IsWholeDump(const DumpStreams& streams) {
    return std::all_of(std::begin(kNeededStreams), std::end(kNeededStreams),
                       [&](std::uint32_t type) { return streams.contains(type); });
}

std::uint32_t NumberAt(const std::string& content, std::size_t at) {
    std::uint32_t number = 0;
    if (at <= content.size() && content.size() - at >= sizeof number)
        std::memcpy(&number, &content[at], sizeof number);
    return number;
}

// UTF-16, preceded by its length in octets.
std::string TextAt(const std::string& content, std::size_t at) {
    constexpr std::size_t kMostName = 256;
    const std::size_t octets = NumberAt(content, at);
    if (octets > kMostName || content.size() < octets || content.size() - octets < at + 4) return "";
    ZBase::WideString text(octets / 2, 0);
    std::memcpy(text.data(), &content[at + 4], octets / 2 * 2);
    return Narrow(text.c_str());
}

// The offsets of a stream's entries, as many as fit in it.
std::vector<std::size_t> EntriesOf(const std::string& content, const DumpStreams& streams, std::uint32_t type,
                                   std::size_t size) {
    const auto stream = streams.find(type);
    std::vector<std::size_t> places;
    if (stream == streams.end()) return places;
    const std::size_t count = NumberAt(content, stream->second.place);
    const std::size_t room = stream->second.size < 4 ? 0 : (stream->second.size - 4) / size;
    for (std::size_t i = 0; i < std::min(count, room); ++i)
        places.push_back(stream->second.place + 4 + i * size);
    return places;
}

std::vector<DumpedThread> ThreadsOf(const std::string& content, const DumpStreams& streams) {
    std::map<std::uint32_t, std::string> names;
    for (const std::size_t at : EntriesOf(content, streams, kThreadNames, kThreadNameSize))
        names[NumberAt(content, at)] = TextAt(content, NumberAt(content, at + 4));
    std::vector<DumpedThread> threads;
    for (const std::size_t at : EntriesOf(content, streams, kThreads, kThreadSize)) {
        const std::uint32_t id = NumberAt(content, at);
        threads.push_back({id, names[id]});
    }
    return threads;
}

// The start of a marked memory block of the report, and its end in the file. Text that looks like the mark
// may also be on a stack or in the command line.
std::vector<std::string_view> MemoriesOf(const std::string& content, const DumpStreams& streams,
                                         std::string_view magic) {
    std::vector<std::string_view> memories;
    for (const std::size_t at : EntriesOf(content, streams, kMemories, kMemorySize)) {
        const std::size_t size = NumberAt(content, at + 8);
        const std::size_t place = NumberAt(content, at + 12);
        if (place > content.size() || content.size() - place < size) continue;
        const std::string_view memory = std::string_view(content).substr(place, size);
        if (memory.starts_with(magic)) memories.push_back(memory);
    }
    for (std::uint32_t type = kFirstOwnStream; type != kFirstOwnStream + kOwnStreams; ++type) {
        const auto stream = streams.find(type);
        if (stream == streams.end()) continue;
        const std::string_view memory =
            std::string_view(content).substr(stream->second.place, stream->second.size);
        if (memory.starts_with(magic)) memories.push_back(memory);
    }
    return memories;
}

// Names and values of the newest block, and its head; the sequence is unchanged if there is none.
std::string_view NewestFields(const std::vector<std::string_view>& memories, CrashKeysBlock& newest) {
    std::string_view fields;
    for (const std::string_view memory : memories) {
        CrashKeysBlock block{};
        if (memory.size() < sizeof block) continue;
        std::memcpy(&block, memory.data(), sizeof block);
        const bool isWhole = block.size <= memory.size() - sizeof block;
        if (!isWhole || block.sequence <= newest.sequence) continue;
        newest = block;
        fields = memory.substr(sizeof block, block.size);
    }
    return fields;
}

void AddFields(std::string_view fields, CrashKeys& keys) {
    const auto next = [&] {
        const std::string_view text = fields.substr(0, fields.find('\0'));
        fields.remove_prefix(std::min(fields.size(), text.size() + 1));
        return std::string(text);
    };
    while (!fields.empty()) {
        const std::string name = next();
        keys[name] = next();
    }
}

/// The ring of notes in a dump.
class NoteRing {
public:
    // False if it is incomplete.
    bool Find(const std::vector<std::string_view>& memories) {
        const auto whole = std::find_if(memories.begin(), memories.end(), [](std::string_view memory) {
            return memory.size() >= sizeof(CrashNotesBlock);
        });
        if (whole == memories.end()) return false;
        const char* const start = whole->data();
        std::uint64_t size = 0;
        std::memcpy(&size, start + offsetof(CrashNotesBlock, size), sizeof size);
        if (size != sizeof mWords) return false;  // of another version
        std::memcpy(&mEnd, start + offsetof(CrashNotesBlock, end), sizeof mEnd);
        std::memcpy(mWords, start + offsetof(CrashNotesBlock, words), sizeof mWords);
        return true;
    }

    // Oldest first. There may be unfinished records between them.
    std::vector<std::string> Notes() const {
        std::vector<std::string> notes;
        const std::uint64_t ring = ZBase::detail::kCrashNoteWords;
        for (std::uint64_t place = mEnd > ring ? mEnd - ring : 0; place < mEnd;) {
            std::string note;
            const std::uint64_t words = Read(place, note);
            if (words != 0) notes.push_back(note);
            place += std::max<std::uint64_t>(words, 1);
        }
        return notes;
    }

private:
    std::uint64_t At(std::uint64_t place) const { return mWords[place % ZBase::detail::kCrashNoteWords]; }

    // Returns the words of the record, or 0 if none begins there.
    std::uint64_t Read(std::uint64_t place, std::string& note) const {
        const std::uint64_t head = At(place);
        const std::size_t octets = head & 0xFFFF;
        const std::uint64_t words = 2 + (octets + 7) / 8;
        if (head >> 16 != place || octets > ZBase::detail::kMostNoteOctets || words > mEnd - place) return 0;
        std::uint64_t checksum = ZBase::detail::NextNoteChecksum(0, head);
        for (std::uint64_t i = 2; i != words; ++i) {
            const std::uint64_t word = At(place + i);
            checksum = ZBase::detail::NextNoteChecksum(checksum, word);
            note.append(reinterpret_cast<const char*>(&word), sizeof word);
        }
        note.resize(octets);
        return checksum == At(place + 1) ? words : 0;
    }

    std::uint64_t mEnd = 0;
    std::uint64_t mWords[ZBase::detail::kCrashNoteWords];
};

}  // namespace

std::vector<fs::path> DumpsIn(const fs::path& directory) {
    std::vector<fs::path> dumps;
    std::error_code failed;
    const fs::directory_iterator entries(directory, failed);
    const bool isNone =
        failed == std::errc::no_such_file_or_directory || failed == std::errc::not_a_directory;
    if (failed && !isNone) throw FileFailure(directory.string(), failed.default_error_condition().value());
    for (const auto& entry : entries) {
        if (entry.path().extension() == ZBase::detail::kDumpEnding) dumps.push_back(entry.path());
    }
    std::sort(dumps.begin(), dumps.end());
    return dumps;
}

DumpedReport ReportOfDump(const fs::path& dump) {
    const std::string content = ReadFile(dump.string());
    DumpedReport report;
    const DumpStreams streams = StreamsOf(content);
    report.isDump = IsWholeDump(streams);
    report.threads = ThreadsOf(content, streams);
    CrashKeysBlock newest{};
    const auto memories = [&](const char* magic) { return MemoriesOf(content, streams, magic); };
    const std::string_view fields = NewestFields(memories(ZBase::detail::kCrashKeysMagic), newest);
    report.hasKeys = newest.sequence != 0;
    report.isForProduction = newest.production == 1;
    if (newest.hanging == 1) report.keys[ZBase::detail::kReasonField] = ZBase::detail::kHangingReason;
    CrashKeysBlock words{};
    AddFields(NewestFields(memories(ZBase::detail::kLastWordsMagic), words), report.keys);
    AddFields(fields, report.keys);
    NoteRing ring;
    if (ring.Find(memories(ZBase::detail::kCrashNotesMagic))) report.notes = ring.Notes();
    return report;
}
