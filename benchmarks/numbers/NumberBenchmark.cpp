// Numbers, identifiers and bytes as text, and back, compared with the standard library or libuuid. Where ours
// makes a result string, the peer copies its text into a block of the same size.

#include <Base/ZBase.h>

#include <uuid/uuid.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/support/Beside.h"

namespace {

constexpr std::size_t kNumbers = 256;
constexpr std::size_t kMegabyte = 1000000;

// A simple generator, so that all runs use the same numbers.
std::uint64_t Next() {
    static std::uint64_t state = 88172645463325252;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

template <class Ch>
std::unique_ptr<Ch[]> Copy(const char* first, const char* last) {
    const auto length = static_cast<std::size_t>(last - first);
    std::unique_ptr<Ch[]> text(new Ch[length + 1]);
    std::copy(first, last, text.get());
    text[length] = 0;
    return text;
}

// Each turn takes the next number, whose lengths differ.
template <class Number>
class Numbers {
public:
    Numbers() {
        for (Number& number : mAll) number = static_cast<Number>(Next() >> Next() % (8 * sizeof(Number)));
    }
    Number Take() { return mAll[mNext++ % kNumbers]; }

private:
    std::array<Number, kNumbers> mAll;
    std::size_t mNext = 0;
};

template <class Ch, class Number, class Write>
void MeasureInteger(const char* row, int base, Write write) {
    Numbers<Number> ours, peers;
    bench::Beside(
        row, 0, [&] { bench::Use(write(ours.Take()).c_str()); },
        [&] {
            char text[32];
            using Magnitude = std::make_unsigned_t<Number>;
            const Number number = peers.Take();
            const auto end =
                base == 16 ? std::to_chars(text, text + sizeof text, static_cast<Magnitude>(number), base)
                           : std::to_chars(text, text + sizeof text, number, base);
            if (base == 16) {
                for (char* c = text; c != end.ptr; ++c) *c = *c >= 'a' ? static_cast<char>(*c - 32) : *c;
            }
            bench::Use(Copy<Ch>(text, end.ptr).get());
        });
}

void MeasureIntegers() {
    MeasureInteger<char, int>("decimal", 10, [](int n) { return ZBase::ToDecimalString(n); });
    MeasureInteger<unsigned short, int>("decimal, wide", 10,
                                        [](int n) { return ZBase::ToDecimalWString(n); });
    MeasureInteger<char, std::int64_t>("decimal, 64 bits", 10,
                                       [](std::int64_t n) { return ZBase::ToDecimal64String(n); });
    MeasureInteger<unsigned short, std::int64_t>("decimal, 64 bits, wide", 10,
                                                 [](std::int64_t n) { return ZBase::ToDecimal64WString(n); });
    MeasureInteger<char, int>("hexadecimal", 16, [](int n) { return ZBase::ToHexUpperString(n); });
    MeasureInteger<unsigned short, int>("hexadecimal, wide", 16,
                                        [](int n) { return ZBase::ToHexUpperWString(n); });
}

void MeasureDoubles() {
    for (const int digits : {12, 15, 17}) {
        std::vector<std::string> texts(kNumbers);
        std::vector<std::vector<unsigned short>> wide;
        for (std::string& text : texts) {
            while (text.size() != static_cast<std::size_t>(digits))
                text += static_cast<char>('1' + Next() % 9);
            text.insert(1 + Next() % 6, 1, '.');
            wide.emplace_back(text.begin(), text.end());
            wide.back().push_back(0);
        }
        std::size_t our = 0, peer = 0;
        bench::Beside(
            std::string("floating point of ").append(std::to_string(digits)).append(" digits, read"), 0,
            [&] {
                const double value = ZBase::LocaleNeutralStringToDouble(wide[our++ % kNumbers].data());
                bench::Use(&value);
            },
            [&] {
                const std::string& text = texts[peer++ % kNumbers];
                double value = 0;
                std::from_chars(text.data(), text.data() + text.size(), value);
                bench::Use(&value);
            });
    }
}

void MeasureIdentifiers() {
    const ZBase::GUID guid;
    uuid_t uuid;
    uuid_generate(uuid);
    bench::Beside(
        "identifier, written", 0, [&] { bench::Use(ZBase::Guid2String(guid).c_str()); },
        [&] {
            char text[UUID_STR_LEN];
            uuid_unparse_upper(uuid, text);
            bench::Use(Copy<unsigned short>(text, text + UUID_STR_LEN - 1).get());
        });

    constexpr const char* kText = "1B4E28BA-2FA1-11D2-883F-B9A761BDE3FB";
    const std::vector<unsigned short> wide(kText, kText + std::strlen(kText) + 1);
    bench::Beside(
        "identifier, read", 0,
        [&] {
            ZBase::_GUID read;
            ZBase::String2Guid(read, wide.data());
            bench::Use(&read);
        },
        [&] {
            uuid_t read;
            uuid_parse(kText, read);
            bench::Use(&read);
        });
}

void MeasureBytes() {
    const bench::Rounds few{60, 1e-3};
    std::string text;
    while (text.size() < kMegabyte) text += "/reports/sales of 2026?name=caf\xC3\xA9&size=100%";
    text.resize(kMegabyte);
    const auto copy = [&text] { bench::Use(Copy<char>(text.data(), text.data() + text.size()).get()); };
    const auto widen = [&text] {
        bench::Use(Copy<unsigned short>(text.data(), text.data() + text.size()).get());
    };
    bench::Beside(
        "escaped for a URL", kMegabyte, [&] { bench::Use(ZBase::UrlEncode(text).data()); }, copy, few);
    bench::Beside(
        "bytes as digits", kMegabyte,
        [&] { bench::Use(ZBase::Binary2String(text.data(), static_cast<int>(text.size())).c_str()); }, widen,
        few);

    std::string merged;
    while (merged.size() < kMegabyte) merged += "The file %1 of the project %2 can't be opened. ";
    const char* const parameters[] = {"names.txt", "Sales", nullptr};
    bench::Beside(
        "template merged", merged.size(),
        [&] { bench::Use(ZBase::MergeParametersIntoTemplate(merged.c_str(), parameters).c_str()); }, copy,
        few);

    std::string ascii(std::size_t{1} << 20, 'a');
    const std::vector<unsigned short> wide(ascii.begin(), ascii.end() + 1);
    bench::Beside(
        "ASCII to wide, 1 MiB", ascii.size(),
        [&] { bench::Use(ZBase::ASCIIToWideChar(ascii.c_str(), false).c_str()); },
        [&] { bench::Use(Copy<unsigned short>(ascii.data(), ascii.data() + ascii.size()).get()); }, few);
    bench::Beside(
        "wide to ASCII, 1 MiB", ascii.size(),
        [&] { bench::Use(ZBase::WideCharToASCII(wide.data(), false).c_str()); },
        [&] {
            std::unique_ptr<char[]> block(new char[ascii.size() + 1]);
            for (std::size_t i = 0; i <= ascii.size(); ++i) block[i] = static_cast<char>(wide[i]);
            bench::Use(block.get());
        },
        few);
}

void MeasureAppending() {
    constexpr std::size_t kUnits = 100;
    ZBase::FragmentedString* text = nullptr;
    std::u16string peer;
    const auto measured = bench::Compare(
        [&] {
            text = ZBase::CreateFragmentedString(nullptr, 4096, ZBase::Allocator<unsigned short>());
            for (std::size_t i = 0; i != 40 * kUnits; ++i) text->AppendChar('a');
            bench::Use(text);
            text->Delete();
        },
        [&] {
            peer.clear();
            peer.shrink_to_fit();
            peer.reserve(4096);
            for (std::size_t i = 0; i != 40 * kUnits; ++i) peer.push_back('a');
            bench::Use(peer.data());
        });
    constexpr double each = 1.0 / (40 * kUnits);
    bench::Tell("character appended", 0,
                {measured.ours * each, measured.peers * each, measured.ratio, measured.low, measured.high});
}

}  // namespace

int main() {
    MeasureIntegers();
    MeasureDoubles();
    MeasureIdentifiers();
    MeasureBytes();
    MeasureAppending();
}
