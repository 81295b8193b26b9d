#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ZBase::detail {

inline constexpr std::size_t kCrashNoteWords = 8192;
inline constexpr std::size_t kMostNoteOctets = 4096;

/// The crash notes in every dump: a ring of records. A record begins with a word that contains the record's
/// position, counted in words from the first note on, above the length of its text in octets in the low 16
/// bits. The second word is a checksum, and the text follows.
///
/// A writer claims its position by raising `end`. If it is interrupted the ring may wrap meanwhile, and it
/// overwrites another record when it continues: the checksum detects that.
struct CrashNotesBlock {
    char magic[16];
    std::uint64_t size;              // octets of the ring
    std::atomic<std::uint64_t> end;  // words that were ever claimed
    std::atomic<std::uint64_t> words[kCrashNoteWords];
};

static_assert(sizeof(CrashNotesBlock) == 32 + 8 * kCrashNoteWords);

inline constexpr char kCrashNotesMagic[17] = "ZBase the notes ";

inline constexpr std::uint64_t NoteHead(std::uint64_t place, std::size_t octets) {
    return place << 16 | octets;
}

inline constexpr std::uint64_t NextNoteChecksum(std::uint64_t checksum, std::uint64_t word) {
    return (checksum ^ word) * 0x9E3779B97F4A7C15 ^ checksum >> 29;
}

/// The ring of this process, with its head filled in. No heap, no lock.
const CrashNotesBlock& CrashNotes();

}  // namespace ZBase::detail
