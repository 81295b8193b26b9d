#include <Base/ZBase.h>

#include <vector>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"

namespace test {

namespace {

using namespace ZBase::Literals;

template <class Text>
struct Kind {
    const char* name;
    Text (*make)(std::size_t length);
    bool isClean;  // but for its end
};

std::string RandomUtf8(std::size_t length) {
    static constexpr std::string_view characters[] = {"a", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                                      " ", "xyz"};
    std::mt19937 numbers = Numbers(length);
    std::string text;
    while (text.size() + 4 <= length) text += characters[numbers() % std::size(characters)];
    return text;
}

std::string RandomOctets(std::size_t length) {
    std::mt19937 numbers = Numbers(length);
    std::string text;
    while (text.size() != length) text += static_cast<char>(numbers() % 255 + 1);
    return text;
}

const Kind<std::string> kNarrow[] = {
    {"ASCII", [](std::size_t length) { return std::string(length, 'x'); }, true},
    {"random UTF-8", RandomUtf8, true},
    {"a flaw at the end", [](std::size_t length) { return RandomUtf8(length) + "\xFF"; }, true},
    {"a cut end", [](std::size_t length) { return RandomUtf8(length) + "\xF0\x9F\x98"; }, true},
    {"random octets", RandomOctets, false},
    {"flaws only", [](std::size_t length) { return std::string(length, '\xFF'); }, false},
    {"tails only", [](std::size_t length) { return std::string(length, '\x80'); }, false},
    {"cut characters", [](std::size_t length) { return Repeated("\xF0\x9F\x98", length); }, false},
    {"surrogates", [](std::size_t length) { return Repeated("\xED\xA0\x80", length); }, false},
    {"every other a flaw", [](std::size_t length) { return Repeated("x\xFE", length); }, false},
};

Units RandomUtf16(std::size_t length) {
    std::mt19937 numbers = Numbers(length);
    Units text;
    while (text.size() + 2 <= length) {
        const auto number = numbers();
        if (number % 4 == 0) {
            text += static_cast<unsigned short>(0xD800 + number / 4 % 1024);
            text += static_cast<unsigned short>(0xDC00 + number / 4096 % 1024);
        } else {
            text += static_cast<unsigned short>(number / 4 % (number % 4 == 1 ? 0xD000 : 127) + 1);
        }
    }
    return text;
}

Units RandomUnits(std::size_t length) {
    std::mt19937 numbers = Numbers(length);
    Units text;
    while (text.size() != length) text += static_cast<unsigned short>(numbers() % 0xFFFF + 1);
    return text;
}

const Kind<Units> kWide[] = {
    {"ASCII", [](std::size_t length) { return Units(length, 'x'); }, true},
    {"random UTF-16", RandomUtf16, true},
    {"a flaw at the end", [](std::size_t length) { return RandomUtf16(length) += 0xFFFF; }, true},
    {"a cut end", [](std::size_t length) { return RandomUtf16(length) += 0xD800; }, true},
    {"random units", RandomUnits, false},
    {"flaws only", [](std::size_t length) { return Units(length, 0xFFFF); }, false},
    {"first surrogates", [](std::size_t length) { return Units(length, 0xD800); }, false},
    {"second surrogates", [](std::size_t length) { return Units(length, 0xDC00); }, false},
    {"every other a flaw",
     [](std::size_t length) {
         Units text(length, 'x');
         for (std::size_t i = 0; i < length; i += 2) text[i] = 0xFFFE;
         return text;
     },
     false},
};

template <class Text>
struct Conversion {
    const char* name;
    std::vector<std::string_view> covers;
    void (*run)(const Text& text, bool replace);
    std::size_t length = 4096;
};

std::u16string_view View16(const Units& text) {
    // The units of both are 16 bits; only tests may look at them so.
    return {reinterpret_cast<const char16_t*>(text.data()), text.size()};
}

void DecodeIntoPlace(const std::string& text, bool replace) {
    std::vector<unsigned short> place(text.size() + 1);
    ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(text.data()), place.data(), text.size(),
                          replace);
}

const Conversion<std::string> kFromNarrow[] = {
    {"UTF8ToWideChar",
     {"ZBase::UTF8ToWideChar(char const*, bool)"},
     [](const std::string& text, bool replace) { ZBase::UTF8ToWideChar(text.c_str(), replace); }},
    {"UTF8ToWideChar into a place",
     {"ZBase::UTF8ToWideChar(unsigned char const*, unsigned short*, unsigned long, bool)"},
     DecodeIntoPlace},
    {"ToUTF16",
     {"ZBase::ToUTF16"},
     [](const std::string& text, bool replace) { ZBase::ToUTF16(text, replace); }},
    {"ScanUTF8", {"ZBase::ScanUTF8"}, [](const std::string& text, bool) { ZBase::ScanUTF8(text); }},
    {"ASCIIToWideChar",
     {"ZBase::ASCIIToWideChar"},
     [](const std::string& text, bool replace) { ZBase::ASCIIToWideChar(text.c_str(), replace); }},
    {"ASCIIToUTF16",
     {"ZBase::ASCIIToUTF16"},
     [](const std::string& text, bool replace) { ZBase::ASCIIToUTF16(text, replace); }},
    {"MultiByteToWideChar",
     {"ZBase::MultiByteToWideChar"},
     [](const std::string& text, bool replace) { ZBase::MultiByteToWideChar(text.c_str(), replace); },
     512},
    {"MultiByteToUTF16",
     {"ZBase::MultiByteToUTF16"},
     [](const std::string& text, bool replace) { ZBase::MultiByteToUTF16(text, replace); },
     512},
};

void EncodeGoverned(const Units& text, bool replace) {
    const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(1u << 30);
    ZBase::SmartPtrI<ZBase::MemoryContract> contract(budget.Get());
    Try([&] { ZBase::WideCharToUTF8Governed(text.c_str(), replace, contract); });
    ZBase::WideCharToUTF8UsingLengthGoverned(text.c_str(), static_cast<unsigned int>(text.size()), contract,
                                             replace);
}

const Conversion<Units> kFromWide[] = {
    {"WideCharToUTF8",
     {"ZBase::WideCharToUTF8"},
     [](const Units& text, bool replace) { ZBase::WideCharToUTF8(text.c_str(), replace); }},
    {"WideCharToUTF8UsingLength",
     {"ZBase::WideCharToUTF8UsingLength"},
     [](const Units& text, bool replace) {
         ZBase::WideCharToUTF8UsingLength(text.c_str(), static_cast<unsigned int>(text.size()), replace);
     }},
    {"WideCharToUTF8Governed",
     {"ZBase::WideCharToUTF8Governed", "ZBase::WideCharToUTF8UsingLengthGoverned"},
     EncodeGoverned},
    {"UTF16ToUTF8",
     {"ZBase::UTF16ToUTF8"},
     [](const Units& text, bool) { ZBase::UTF16ToUTF8(text.c_str()); }},
    {"ToUTF8",
     {"ZBase::ToUTF8"},
     [](const Units& text, bool replace) { ZBase::ToUTF8(View16(text), replace); }},
    {"UTF16ToWideChar",
     {"ZBase::UTF16ToWideChar"},
     [](const Units& text, bool replace) { ZBase::UTF16ToWideChar(text.c_str(), replace); }},
    {"WideCharToUTF16",
     {"ZBase::WideCharToUTF16"},
     [](const Units& text, bool replace) {
         ZBase::WideCharToUTF16(text.c_str(), replace);
         std::vector<unsigned short> place(text.size() + 1);
         ZBase::WideCharToUTF16(text.c_str(), place.data(), text.size(), replace);
     }},
    {"WideCharToASCII",
     {"ZBase::WideCharToASCII"},
     [](const Units& text, bool replace) { ZBase::WideCharToASCII(text.c_str(), replace); }},
    {"UTF16ToASCII",
     {"ZBase::UTF16ToASCII"},
     [](const Units& text, bool replace) { ZBase::UTF16ToASCII(View16(text), replace); }},
    {"WideCharToMultiByte",
     {"ZBase::WideCharToMultiByte"},
     [](const Units& text, bool replace) { ZBase::WideCharToMultiByte(text.c_str(), replace); },
     512},
    {"UTF16ToMultiByte",
     {"ZBase::UTF16ToMultiByte"},
     [](const Units& text, bool replace) { ZBase::UTF16ToMultiByte(View16(text), replace); },
     512},
};

/// Each conversion with each kind of text, strict where that goes beyond the first flaw.
template <class Text, std::size_t conversions, std::size_t kinds>
void AddConversions(std::vector<Row>& rows, const Conversion<Text> (&all)[conversions],
                    const Kind<Text> (&texts)[kinds]) {
    for (const Conversion<Text>& conversion : all) {
        for (const Kind<Text>& kind : texts) {
            for (const bool replace : {true, false}) {
                if (!replace && !kind.isClean) continue;
                rows.push_back({std::string(conversion.name) + (replace ? ", " : ", strictly, ") + kind.name,
                                conversion.covers, conversion.length,
                                [&conversion, &kind, replace](auto length) {
                                    return Over(kind.make(length), [&conversion, replace](const Text& text) {
                                        Try([&] { conversion.run(text, replace); });
                                    });
                                }});
            }
        }
    }
}

/// A row over a text that a function makes.
template <class Run>
Row OverText(std::string name, std::vector<std::string_view> covers, std::size_t length,
             std::string (*make)(std::size_t), Run run) {
    return {std::move(name), std::move(covers), length, [make, run](std::size_t of) {
                return Over(make(of), [run](const std::string& text) { Try([&] { run(text); }); });
            }};
}

struct NumberText {
    const char* name;
    std::string (*make)(std::size_t length);
};

const NumberText kNumbers[] = {
    {"digits", [](std::size_t length) { return std::string(length, '7'); }},
    {"zeros in front", [](std::size_t length) { return std::string(length, '0') + "17"; }},
    {"spaces in front", [](std::size_t length) { return std::string(length, ' ') + "17"; }},
    {"a fraction", [](std::size_t length) { return "0." + std::string(length, '3'); }},
    {"zeros and a fraction", [](std::size_t length) { return "0." + std::string(length, '0') + "1"; }},
    // Half-way between two doubles but for the last digit.
    {"almost a tie", [](std::size_t length) { return "9007199254740993." + std::string(length, '0') + "1"; }},
    {"a long exponent", [](std::size_t length) { return "1e" + std::string(length, '0') + "5"; }},
    {"a large exponent", [](std::size_t length) { return "1e" + std::string(length, '9'); }},
    {"text behind", [](std::size_t length) { return "17" + std::string(length, 'x'); }},
};

void ReadNumbers(const std::string& text) {
    const Units wide = ToUnits(text);
    ZBase::DecimalToInt(text.c_str());
    ZBase::DecimalToInt(wide.c_str());
    ZBase::DecimalToInt64(text.c_str());
    ZBase::DecimalToInt64(wide.c_str());
    for (const bool lenient : {false, true}) {
        Try([&] { ZBase::HexToUnsignedInt(text.c_str(), lenient); });
        Try([&] { ZBase::HexToUnsignedInt(wide.c_str(), lenient); });
    }
    Try([&] { ZBase::LocaleNeutralStringToDouble(wide.c_str()); });
}

void ReadIdentifiers(const std::string& text) {
    const Units wide = ToUnits(text);
    ZBase::_GUID guid;
    ZBase::_UDID udid;
    ZBase::String2Guid(guid, wide.c_str());
    ZBase::MSString2Guid(guid, wide.c_str());
    ZBase::String2Udid(udid, wide.c_str());
    const ZBase::GUID identifier(wide.c_str());
}

void ReadSid(const std::string& text) {
    const ZBase::WideString wide = ToWide(text);
    unsigned char* sid = nullptr;
    std::uint64_t size = 0;
    ZBase::SidWStringToBinary(wide, sid, size);
    delete[] sid;
}

void AddNumbers(std::vector<Row>& rows) {
    for (const NumberText& number : kNumbers) {
        rows.push_back(OverText(std::string("numbers from ") + number.name,
                                {"ZBase::DecimalToInt", "ZBase::DecimalToInt64", "ZBase::HexToUnsignedInt",
                                 "ZBase::LocaleNeutralStringToDouble"},
                                4096, number.make, ReadNumbers));
        rows.push_back(OverText(std::string("NearestDouble from ") + number.name, {"ZBase::NearestDouble"},
                                4096, number.make,
                                [](const std::string& text) { ZBase::NearestDouble(text); }));
        rows.push_back(OverText(std::string("identifiers from ") + number.name,
                                {"ZBase::String2Guid", "ZBase::MSString2Guid", "ZBase::String2Udid",
                                 "ZBase::GUID::GUID(unsigned short const*)"},
                                4096, number.make, ReadIdentifiers));
    }
    rows.push_back(OverText(
        "a GUID of braces", {}, 4096, [](std::size_t length) { return std::string(length, '{'); },
        ReadIdentifiers));
    rows.push_back(OverText(
        "a SID of dashes", {"ZBase::SidWStringToBinary"}, 4096,
        [](std::size_t length) { return "S" + std::string(length, '-'); }, ReadSid));
    rows.push_back(OverText(
        "a SID of numbers", {}, 4096,
        [](std::size_t length) { return "S" + Repeated("-4294967295", length); }, ReadSid));
    rows.push_back(OverText(
        "a SID of one long number", {}, 4096,
        [](std::size_t length) { return "S-1-5-" + std::string(length, '9'); }, ReadSid));
    rows.push_back({"a SID of octets", {"ZBase::SidBinaryToWString"}, 15, [](std::size_t length) {
                        std::string record(8 + 4 * length, '\xFF');
                        record[1] = static_cast<char>(length);
                        return Over(std::move(record), [](const std::string& sid) {
                            ZBase::SidBinaryToWString(reinterpret_cast<const unsigned char*>(sid.data()),
                                                      sid.size());
                        });
                    }});
}

void AddOctets(std::vector<Row>& rows) {
    for (const char* const filling : {"x", "\xFF", " "}) {
        const std::string kind = *filling == 'x'   ? "plain octets"
                                 : *filling == ' ' ? "spaces"
                                                   : "high octets";
        const auto add = [&](const char* name, std::string_view covers, auto run) {
            rows.push_back({name + (", " + kind), {covers}, 8192, [filling, run](std::size_t length) {
                                return Over(std::string(length, *filling), run);
                            }});
        };
        add("Binary2String", "ZBase::Binary2String", [](const std::string& text) {
            ZBase::Binary2String(text.data(), static_cast<int>(text.size()));
        });
        add("Binary2OctString", "ZBase::Binary2OctString", [](const std::string& text) {
            ZBase::Binary2OctString(text.data(), static_cast<int>(text.size()));
        });
        add("UrlEncode", "ZBase::UrlEncode", [](const std::string& text) { ZBase::UrlEncode(text); });
    }
    constexpr std::pair<const char*, const char*> kEncoded[] = {
        {"plain octets", "x"}, {"spaces", "%20"}, {"mixed cases", "%fF"}, {"percent signs", "x%"}};
    for (const auto& [kind, part] : kEncoded) {
        rows.push_back({std::string("UrlDecode, ") + kind,
                        {"ZBase::UrlDecode"},
                        8192,
                        [unit = part](std::size_t length) {
                            return Over(Repeated(unit, length), [](const std::string& text) {
                                Try([&] { ZBase::UrlDecode(text); });
                            });
                        }});
    }
    rows.push_back({"UrlDecode, a cut escape at the end", {}, 8192, [](std::size_t length) {
                        return Over(std::string(length, 'x') + "%2",
                                    [](const std::string& text) { Try([&] { ZBase::UrlDecode(text); }); });
                    }});
}

// Pieces of text, in the heap and in a buffer.

void AddFragments(std::vector<Row>& rows) {
    for (const bool inBuffer : {false, true}) {
        const std::string where = inBuffer ? " in a buffer" : " in the heap";
        const auto build = [inBuffer](const Units& text, std::uint64_t capacity, auto append) {
            const ZBase::BufferPtr buffer(inBuffer ? ZBase::CreateBufferSingleThread(0, 1, nullptr, 0, false)
                                                   : nullptr);
            ZBase::FragmentedString* const pieces = ZBase::CreateFragmentedString(
                nullptr, capacity, ZBase::Allocator<unsigned short>(buffer.get()));
            append(*pieces, text);
            unsigned int length = 0;
            pieces->GetLength(&length);
            Units copy(length, 0);
            pieces->CopyTo(length, copy.data());
            pieces->GetTotalBytes(&length);
            pieces->GetFragmentCount(&length);
            pieces->Delete();
        };
        const auto add = [&](std::string name, std::size_t length, std::uint64_t capacity, auto append) {
            rows.push_back({std::move(name) + where,
                            {"ZBase::CreateFragmentedString"},
                            length,
                            [build, capacity, append](std::size_t of) {
                                return Over(Units(of, 'x'),
                                            [=](const Units& text) { build(text, capacity, append); });
                            }});
        };
        add("FragmentedString, one text", 16'384, 0,
            [](ZBase::FragmentedString& pieces, const Units& text) { pieces.AppendString(text.c_str()); });
        add("FragmentedString, unit by unit", 2048, 0,
            [](ZBase::FragmentedString& pieces, const Units& text) {
                for (const unsigned short unit : text) pieces.AppendChar(unit);
            });
        add("FragmentedString, of a capacity of 1, by pieces", 2048, 1,
            [](ZBase::FragmentedString& pieces, const Units& text) {
                for (std::size_t i = 0; i != text.size(); ++i) pieces.Append(text.data() + i, 1);
            });
        add("FragmentedString, asked at each piece", 2048, 0,
            [](ZBase::FragmentedString& pieces, const Units& text) {
                for (const unsigned short unit : text) {
                    unsigned int figure = 0;
                    pieces.AppendChar(unit);
                    pieces.GetLength(&figure);
                }
            });
        add("FragmentedString, begun with a text", 16'384, 7,
            [inBuffer](ZBase::FragmentedString&, const Units& text) {
                ZBase::CreateFragmentedString(text.c_str(), ZBase::Allocator<unsigned short>())->Delete();
                ZBase::CreateFragmentedString(text.c_str(), 7, ZBase::Allocator<unsigned short>())->Delete();
            });
    }
}

}  // namespace

std::vector<Row> TextRows() {
    std::vector<Row> rows;
    AddConversions(rows, kFromNarrow, kNarrow);
    AddConversions(rows, kFromWide, kWide);
    AddNumbers(rows);
    AddOctets(rows);
    AddFragments(rows);
    return rows;
}

}  // namespace test
