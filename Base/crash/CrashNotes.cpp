#include <Base/crash/CrashNotes.h>
#include <Base/crash/detail/CrashState.h>

#include <algorithm>
#include <cstring>

namespace ZBase {

namespace {

// Does not cut a UTF-8 character.
std::size_t KeptOctets(const char* text) {
    const void* const end = std::memchr(text, 0, detail::kMostNoteOctets + 1);
    if (end != nullptr) return static_cast<std::size_t>(static_cast<const char*>(end) - text);
    std::size_t octets = detail::kMostNoteOctets;
    const auto continues = [&] { return (static_cast<unsigned char>(text[octets]) & 0xC0) == 0x80; };
    while (octets + 4 > detail::kMostNoteOctets && continues()) --octets;
    return octets;
}

// A word of text has no zero octet, and a record's head has some, so they can't be confused.
std::uint64_t TextWord(const char* text, std::size_t octets) {
    std::uint64_t word = ~std::uint64_t{0};
    std::memcpy(&word, text, std::min(octets, sizeof word));
    return word;
}

std::atomic<std::uint64_t>& WordAt(std::uint64_t place) {
    return gCrash.notes.words[place % detail::kCrashNoteWords];
}

}  // namespace

bool AddCrashNote(const char* text) {
    if (text == nullptr) return false;
    const std::size_t octets = KeptOctets(text);
    const std::size_t words = (octets + 7) / 8;
    const std::uint64_t place = gCrash.notes.end.fetch_add(2 + words);
    const std::uint64_t head = detail::NoteHead(place, octets);
    std::uint64_t checksum = detail::NextNoteChecksum(0, head);
    for (std::size_t i = 0; i != words; ++i) {
        const std::uint64_t word = TextWord(text + 8 * i, octets - 8 * i);
        checksum = detail::NextNoteChecksum(checksum, word);
        WordAt(place + 2 + i).store(word, std::memory_order_relaxed);
    }
    WordAt(place + 1).store(checksum, std::memory_order_relaxed);
    WordAt(place).store(head, std::memory_order_release);
    return true;
}

const detail::CrashNotesBlock& detail::CrashNotes() {
    std::memcpy(gCrash.notes.magic, kCrashNotesMagic, sizeof gCrash.notes.magic);
    gCrash.notes.size = sizeof gCrash.notes.words;
    return gCrash.notes;
}

}  // namespace ZBase
