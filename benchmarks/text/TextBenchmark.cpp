// Conversions between UTF-8 and wide text beside ICU's, on texts of 64 octets to 1 MiB in five scripts.
//
// A speed is octets of UTF-8 per second in the quickest of many short rounds, in which the two take turns, so
// that what else the machine does counts as little as it can. Decoding goes into memory that is there;
// encoding makes a result, which ICU does not have to.

#include <Base/ZBase.h>

#include <unicode/ustring.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLengths[] = {64, 4096, std::size_t{1} << 20};
constexpr int kRounds = 400;
constexpr double kRoundSeconds = 5e-5;

// Keeps the compiler from leaving out what makes it.
void Use(const void* value) {
    asm volatile("" : : "r"(value) : "memory");
}

template <class Work>
double Seconds(Work work, std::size_t turns) {
    const auto start = Clock::now();
    for (std::size_t turn = 0; turn != turns; ++turn) work();
    return std::chrono::duration<double>(Clock::now() - start).count() / static_cast<double>(turns);
}

// The least time of each of two, in seconds.
struct Times {
    double ours = 1;
    double peers = 1;
};

template <class Ours, class Peers>
Times Compare(Ours ours, Peers peers) {
    Times times;
    const double first = std::max({Seconds(ours, 1), Seconds(peers, 1), 1e-9});
    const auto turns = std::max<std::size_t>(1, static_cast<std::size_t>(kRoundSeconds / first));
    for (int round = 0; round != kRounds; ++round) {
        times.ours = std::min(times.ours, Seconds(ours, turns));
        times.peers = std::min(times.peers, Seconds(peers, turns));
    }
    return times;
}

std::string ReadFiles(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        std::ifstream file(name, std::ios::binary);
        if (!file) throw std::runtime_error(name + " is missing");
        text.append(std::istreambuf_iterator<char>(file), {});
    }
    return text;
}

std::string Emoji() {
    std::string text;
    for (unsigned int i = 0; i != 1000; ++i) {
        const unsigned int value = 0x1F300 + i * 37 % 0x2A0;
        text += static_cast<char>(0xF0 | value >> 18);
        for (int shift = 12; shift >= 0; shift -= 6)
            text += static_cast<char>(0x80 | (value >> shift & 0x3F));
    }
    return text;
}

// At most `length` octets of a text that goes on and on, cut between two characters.
std::string Cut(const std::string& text, std::size_t length) {
    std::string cut;
    while (cut.size() <= length) cut += text;
    while ((cut[length] & 0xC0) == 0x80) --length;
    return cut.substr(0, length);
}

void Check(UErrorCode code) {
    if (U_FAILURE(code)) throw std::runtime_error(u_errorName(code));
}

void Measure(const char* script, const std::string& octets) {
    const auto size = static_cast<std::int32_t>(octets.size());
    const auto* source = reinterpret_cast<const unsigned char*>(octets.data());
    std::vector<unsigned short> ours(octets.size() + 1);
    std::u16string peers(octets.size() + 1, u'\0');
    std::int32_t units = 0;
    const Times decoding = Compare(
        [&] {
            ZBase::UTF8ToWideChar(source, ours.data(), octets.size(), false);
            Use(ours.data());
        },
        [&] {
            UErrorCode code = U_ZERO_ERROR;
            u_strFromUTF8(peers.data(), size + 1, &units, octets.data(), size, &code);
            Check(code);
            Use(peers.data());
        });
    if (std::memcmp(ours.data(), peers.data(), static_cast<std::size_t>(units) * sizeof(char16_t)) != 0) {
        throw std::runtime_error("the two do not agree");
    }

    std::string back(octets.size() + 1, '\0');
    const Times encoding =
        Compare([&] { Use(ZBase::WideCharToUTF8(ours.data(), false).c_str()); },
                [&] {
                    UErrorCode code = U_ZERO_ERROR;
                    std::int32_t length = 0;
                    u_strToUTF8(back.data(), size + 1, &length, peers.data(), units, &code);
                    Check(code);
                    Use(back.data());
                });
    const double gigabytes = static_cast<double>(octets.size()) / 1e9;
    std::printf("%-9s%9zu%10.2f%8.2f%8.2f%12.2f%8.2f%8.2f\n", script, octets.size(),
                gigabytes / decoding.ours, gigabytes / decoding.peers, decoding.peers / decoding.ours,
                gigabytes / encoding.ours, gigabytes / encoding.peers, encoding.peers / encoding.ours);
}

}  // namespace

int main() {
    const std::string fortunes = "/usr/share/games/fortunes/";
    const struct {
        const char* script;
        std::string text;
    } texts[] = {
        {"ASCII", "All that has been said of the matter so far is written down in plain words, one by one. "},
        {"French",
         "Il était une fois, au bord d'une forêt, un garçon nommé Théo qui aimait la musique et les élèves "
         "de "
         "l'école où il avait été reçu dès l'été. "},
        {"Cyrillic", ReadFiles({fortunes + "ru/love", fortunes + "ru/polit", fortunes + "ru/knowledge"})},
        {"Chinese", ReadFiles({fortunes + "tang300", fortunes + "song100"})},
        {"emoji", Emoji()},
    };
    std::printf("%-9s%9s%26s%28s\n", "", "octets", "UTF-8 to wide, GB/s", "wide to UTF-8, GB/s");
    std::printf("%-9s%9s%10s%8s%8s%12s%8s%8s\n", "", "", "ours", "ICU", "ratio", "ours", "ICU", "ratio");
    for (const auto& [script, text] : texts) {
        for (const std::size_t length : kLengths) Measure(script, Cut(text, length));
    }
}
