// Conversions between UTF-8 and wide text compared with ICU's, on texts of 16 octets to 1 MiB in five
// scripts, from books and manuals but for the emoji, and with flaws that are replaced. Decoding uses existing
// memory; encoding allocates a result, which ICU does not have to.

#include <Base/ZBase.h>

#include <unicode/ustring.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/support/Beside.h"

namespace {

constexpr std::size_t kShortest = 16;
constexpr std::size_t kLongest = std::size_t{1} << 20;

std::string ReadFiles(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        std::ifstream file(name, std::ios::binary);
        if (!file) throw std::runtime_error(name + " is missing");
        text.append(std::istreambuf_iterator<char>(file), {});
    }
    return text;
}

std::string ReadPacked(const std::string& name) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(popen(("zcat " + name).c_str(), "r"), pclose);
    std::string text;
    char piece[4096];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get()))
        text.append(piece, count);
    if (text.empty()) throw std::runtime_error(name + " is missing");
    return text.substr(text.find("\u00E9"));  // its title is of ASCII
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

// At most `length` octets of an endless text, cut between two characters.
std::string Cut(const std::string& text, std::size_t length) {
    std::string cut;
    while (cut.size() <= length) cut += text;
    while ((cut[length] & 0xC0) == 0x80) --length;
    return cut.substr(0, length);
}

void Check(UErrorCode code) {
    if (U_FAILURE(code)) throw std::runtime_error(u_errorName(code));
}

constexpr bench::Rounds kRounds{100, 5e-5};

// "4 KiB" for 4096.
std::string Name(std::size_t length) {
    if (length < 1024) return std::to_string(length);
    return length < kLongest ? std::to_string(length >> 10).append(" KiB")
                             : std::to_string(length >> 20).append(" MiB");
}

class Conversion {
public:
    explicit Conversion(std::string octets)
        : mOctets(std::move(octets)),
          mOurs(mOctets.size() + 1),
          mPeers(mOctets.size() + 1, u'\0'),
          mBack(mOctets.size() + 1, '\0') {
        Decode(false);
        DecodePeers(-1);
        if (std::memcmp(mOurs.data(), mPeers.data(), static_cast<std::size_t>(mUnits) * sizeof(char16_t)) !=
            0)
            throw std::runtime_error("the two do not agree");
    }

    void Decode(bool replace) {
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(mOctets.data()), mOurs.data(),
                              mOctets.size(), replace);
        bench::Use(mOurs.data());
    }
    void DecodePeers(int replacement) {
        UErrorCode code = U_ZERO_ERROR;
        u_strFromUTF8WithSub(mPeers.data(), Size() + 1, &mUnits, mOctets.data(), Size(), replacement, nullptr,
                             &code);
        Check(code);
        bench::Use(mPeers.data());
    }
    void Encode(bool replace) { bench::Use(ZBase::WideCharToUTF8(mOurs.data(), replace).c_str()); }
    void EncodePeers() {
        UErrorCode code = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strToUTF8(mBack.data(), Size() + 1, &length, mPeers.data(), mUnits, &code);
        Check(code);
        bench::Use(mBack.data());
    }

    /// Puts a flaw at each `distance`: one that both replace.
    void Spoil(std::size_t distance) {
        for (std::size_t at = distance / 2; at < mOctets.size(); at += distance) mOctets[at] = '\xFF';
        for (std::size_t at = distance / 2; at < mOctets.size(); at += distance) mOurs[at] = 0xFFFF;
    }

    std::size_t Octets() const { return mOctets.size(); }

private:
    std::int32_t Size() const { return static_cast<std::int32_t>(mOctets.size()); }

    std::string mOctets;
    std::vector<unsigned short> mOurs;
    std::u16string mPeers;
    std::string mBack;
    std::int32_t mUnits = 0;
};

void Measure(const std::string& script, const std::string& text, std::size_t length) {
    Conversion conversion(Cut(text, length));
    const std::string what = script + ", " + Name(length);
    bench::Beside(
        "decoding, " + what, conversion.Octets(), [&] { conversion.Decode(false); },
        [&] { conversion.DecodePeers(-1); }, kRounds);
    bench::Beside(
        "encoding, " + what, conversion.Octets(), [&] { conversion.Encode(false); },
        [&] { conversion.EncodePeers(); }, kRounds);
}

// Compared with the same text without a flaw, and with ICU.
void MeasureFlaws(const std::string& text, std::size_t distance) {
    Conversion clean(Cut(text, 65536)), flawed(Cut(text, 65536));
    flawed.Spoil(distance);
    const std::string what = ", one flaw in " + std::to_string(distance);
    bench::Beside(
        "decoding" + what + ", beside none", clean.Octets(), [&] { flawed.Decode(true); },
        [&] { clean.Decode(true); }, kRounds);
    bench::Beside(
        "encoding" + what + ", beside none", clean.Octets(), [&] { flawed.Encode(true); },
        [&] { clean.Encode(true); }, kRounds);
    bench::Beside(
        "decoding" + what, clean.Octets(), [&] { flawed.Decode(true); }, [&] { flawed.DecodePeers(0xFFFD); },
        kRounds);
    bench::Beside(
        "encoding" + what, clean.Octets(), [&] { flawed.Encode(true); }, [&] { clean.EncodePeers(); },
        kRounds);
}

}  // namespace

int main() {
    const std::string fortunes = "/usr/share/games/fortunes/";
    const struct {
        const char* script;
        std::string text;
    } texts[] = {
        {"ASCII", ReadFiles({fortunes + "literature", fortunes + "riddles"})},
        {"French", ReadPacked("/usr/share/doc/debian/FAQ/debian-faq.fr.txt.gz")},
        {"Cyrillic", ReadFiles({fortunes + "ru/love", fortunes + "ru/polit", fortunes + "ru/knowledge"})},
        {"Chinese", ReadFiles({fortunes + "tang300", fortunes + "song100"})},
        {"emoji", Emoji()},
    };
    for (const auto& [script, text] : texts) {
        for (std::size_t length = kShortest; length <= kLongest; length *= 4) Measure(script, text, length);
    }
    for (const std::size_t distance : {1000, 32}) MeasureFlaws(texts[0].text, distance);
}
