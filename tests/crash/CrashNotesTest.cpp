#include <Base/crash/CrashNotes.h>
#include <TestPlaces.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/crash/CrashBench.h"

// Notes of a dump, as `zbase crash show` prints them.

namespace {

namespace fs = std::filesystem;

std::string ContentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The intact records of the ring in a dump, newest first, by an independent reader: each offset of the ring
// is tried as a beginning.
std::multiset<std::string> NotesIn(const std::string& dump) {
    std::multiset<std::string> notes;
    const std::size_t at = dump.find("ZBase the notes ");
    if (at == std::string::npos || dump.size() - at < 32 + 65536) return notes;
    const auto word = [&](std::size_t index) {
        std::uint64_t value = 0;
        std::memcpy(&value, &dump[at + 32 + 8 * (index % 8192)], sizeof value);
        return value;
    };
    std::uint64_t end = 0;
    std::memcpy(&end, &dump[at + 24], sizeof end);
    for (std::uint64_t place = end > 8192 ? end - 8192 : 0; place != end; ++place) {
        if (word(place) >> 16 != place) continue;
        const std::size_t octets = word(place) & 0xFFFF;
        if (place + 2 + (octets + 7) / 8 > end) continue;
        std::uint64_t checksum = 0;
        std::string text;
        for (std::size_t i = 0; i <= (octets + 7) / 8; ++i) {
            const std::uint64_t value = word(place + (i == 0 ? 0 : i + 1));
            checksum = ((checksum ^ value) * 0x9E3779B97F4A7C15) ^ (checksum >> 29);
            if (i != 0) text.append(reinterpret_cast<const char*>(&value), sizeof value);
        }
        if (checksum == word(place + 1)) notes.insert(text.substr(0, octets));
    }
    return notes;
}

class CrashNotes : public test::CrashBench {
protected:
    std::string DumpOf(const std::string& kind) {
        mServer = "http://127.0.0.1:1/";
        Configure();
        EXPECT_EQ(Crash({kind}, {}, "LastWordsProbe").signal, SIGSEGV);
        EXPECT_EQ(LeftDumps().size(), 1u);
        return ContentOf(LeftDumps().at(0));
    }
};

TEST_F(CrashNotes, NewestOnesAreInTheDump) {
    const std::multiset<std::string> notes = NotesIn(DumpOf("notes"));
    // "note 9999" takes two words and 16 octets more; the last two take 16 and 56.
    const std::size_t expected = (65536 - 16 - 56) / 32;
    EXPECT_EQ(notes.size(), expected + 2);
    EXPECT_TRUE(notes.contains(""));
    EXPECT_TRUE(notes.contains("one line\nand another, \x1B[31min red\n"));
    for (std::size_t i = 0; i != expected; ++i)
        EXPECT_TRUE(notes.contains("note " + std::to_string(9999 - i))) << i;
}

TEST_F(CrashNotes, LongOnesAreCutBetweenCharacters) {
    const auto repeated = [](const std::string& letter, int times) {
        std::string text;
        for (int i = 0; i != times; ++i) text += letter;
        return text;
    };
    // Of 4096 octets: 1 + 2 * 2047, 1 + 3 * 1365, 2 + 4 * 1023.
    EXPECT_EQ(NotesIn(DumpOf("long-notes")),
              (std::multiset<std::string>{
                  repeated("a", 4096), repeated("b", 4096), "c" + repeated("\xC3\xA9", 2047),
                  "d" + repeated("\xE2\x82\xAC", 1365), "ee" + repeated("\xF0\x9F\x98\x80", 1023)}));
}

TEST_F(CrashNotes, WrittenBesideACrashAreWholeOrLeftOut) {
    const std::multiset<std::string> notes = NotesIn(DumpOf("beside-notes"));
    EXPECT_GT(notes.size(), 50u);
    std::set<std::string> possible = {"from a handler, from a handler, from a handler"};
    for (int i = 0; i != 4; ++i)
        possible.insert(std::string(static_cast<std::size_t>(20 + 300 * i), static_cast<char>('a' + i)));
    for (const std::string& note : notes) EXPECT_TRUE(possible.contains(note)) << note;
}

TEST_F(CrashNotes, OfNullAreRefused) {
    EXPECT_FALSE(ZBase::AddCrashNote(nullptr));
    EXPECT_TRUE(ZBase::AddCrashNote(""));
}

}  // namespace
