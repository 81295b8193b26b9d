#include "Commands.h"
#include "Console.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using ZBase::StringConversionException;
using Units = std::vector<unsigned short>;

// Where a text stops being UTF-8, and why.
struct Flaw {
    std::size_t offset;  // octets from the start
    std::size_t line;
    std::size_t column;  // characters, both counted from 1
    std::string reason;
};

struct Verdict {
    std::size_t characters = 0;
    std::vector<Flaw> flaws;  // none, or the first
};

constexpr unsigned short kUnwritten = 0xFFFF;  // no unit that a strict decoding gives

bool IsHighSurrogate(unsigned short unit) {
    return (unit & 0xFC00) == 0xD800;
}

std::string ReasonOf(const ZBase::Message& failure) {
    return ZBase::FormatMessage(failure, 0).c_str();
}

const unsigned char* Octets(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// The decoder leaves what it had decoded before a flaw, so the flaw is found by walking over as much of the
// source as these units came from.
Verdict Judge(const std::string& text) {
    Verdict verdict;
    Units units(text.size() + 1, kUnwritten);
    std::string reason;
    try {
        ZBase::UTF8ToWideChar(Octets(text), units.data(), text.size(), false);
    } catch (const StringConversionException& failure) {
        reason = ReasonOf(failure);
    }
    std::size_t offset = 0;
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t unit = 0; offset < text.size() && units[unit] != kUnwritten; ++unit) {
        ++verdict.characters;
        ++column;
        if (text[offset] == '\n') {
            ++line;
            column = 1;
        }
        offset += ZBase::UTF8TotalBytes(text[offset]);
        if (IsHighSurrogate(units[unit])) ++unit;
    }
    if (!reason.empty()) verdict.flaws.push_back({offset, line, column, reason});
    return verdict;
}

Units FromUtf16(const std::string& file, const std::string& text) {
    if (text.size() % 2 != 0) throw Failure(file + ": half a UTF-16 unit at the end");
    Units units(text.size() / 2);
    for (std::size_t i = 0; i != units.size(); ++i) {
        units[i] = static_cast<unsigned short>(Octets(text)[2 * i] | Octets(text)[2 * i + 1] << 8);
    }
    return units;
}

std::string ToUtf16(const Units& units) {
    std::string text;
    text.reserve(2 * units.size());
    for (const unsigned short unit : units) {
        text.push_back(static_cast<char>(unit & 0xFF));
        text.push_back(static_cast<char>(unit >> 8));
    }
    return text;
}

// Calls `convert(piece)` on each terminated piece of `source` and `zero()` for each zero between two: the
// conversions of terminated text then serve texts with zeros in them.
template <class Text, class Convert, class Zero>
void ForEachPiece(const Text& source, Convert convert, Zero zero) {
    std::size_t start = 0;
    for (std::size_t i = 0;; ++i) {
        if (i != source.size() && source[i] != 0) continue;
        convert(source.data() + start);
        if (i == source.size()) return;
        zero();
        start = i + 1;
    }
}

Units Decode(const std::string& file, const std::string& text, const std::string& encoding, bool replace) {
    if (encoding == "utf16le") return FromUtf16(file, text);
    Units units;
    if (encoding == "utf8") {
        units.assign(text.size() + 1, kUnwritten);
        ZBase::UTF8ToWideChar(Octets(text), units.data(), text.size(), replace);
        std::size_t used = 0;  // the first unit that is not written lies behind the terminator
        while (used != units.size() && units[used] != kUnwritten) ++used;
        units.resize(used - 1);
        return units;
    }
    using Conversion = ZBase::ReturnWString (*)(const char*, bool);
    const Conversion ascii = ZBase::ASCIIToWideChar;
    const Conversion locale = ZBase::MultiByteToWideChar;
    const Conversion toWide = encoding == "ascii" ? ascii : locale;
    ForEachPiece(
        text,
        [&](const char* piece) {
            const ZBase::ReturnWString wide = toWide(piece, replace);
            units.insert(units.end(), wide.c_str(), wide.c_str() + wide.GetLength());
        },
        [&] { units.push_back(0); });
    return units;
}

std::string Encode(Units units, const std::string& encoding, bool replace) {
    if (encoding == "utf16le") return ToUtf16(units);
    using Conversion = ZBase::ReturnString (*)(const unsigned short*, bool);
    const Conversion utf8 = ZBase::WideCharToUTF8;
    const Conversion ascii = ZBase::WideCharToASCII;
    const Conversion locale = ZBase::WideCharToMultiByte;
    const Conversion toNarrow = encoding == "utf8" ? utf8 : encoding == "ascii" ? ascii : locale;
    std::string text;
    units.push_back(0);
    ForEachPiece(
        std::basic_string_view<unsigned short>(units.data(), units.size() - 1),
        [&](const unsigned short* piece) { text += toNarrow(piece, replace).c_str(); },
        [&] { text.push_back('\0'); });
    return text;
}

void WriteFile(const std::string& file, const std::string& content) {
    std::FILE* output = std::fopen(file.c_str(), "wb");
    if (output == nullptr) throw FileFailure(file, errno);
    const bool written = std::fwrite(content.data(), 1, content.size(), output) == content.size();
    const int writeError = errno;
    const bool closed = std::fclose(output) == 0;
    if (!written || !closed) throw FileFailure(file, written ? errno : writeError);
}

int Report(const std::string& file, const std::string& text) {
    const Verdict verdict = Judge(text);
    const std::string octets = std::to_string(text.size()) + " octets";
    if (verdict.flaws.empty()) {
        Print(Styled(file, "1") + ": UTF-8, " + octets + ", " + std::to_string(verdict.characters) +
              " characters\n");
        return 0;
    }
    const Flaw& flaw = verdict.flaws.front();
    Print(Styled(file, "1") + ": " + Styled("not UTF-8", "31") + " at offset " + std::to_string(flaw.offset) +
          " of " + octets + " (line " + std::to_string(flaw.line) + ", character " +
          std::to_string(flaw.column) + "): " + flaw.reason + "\n");
    return 1;
}

}  // namespace

int RunText(const TextRequest& request) {
    const std::string content = ReadFile(request.file);
    if (request.to.empty()) {
        if (request.from == "utf8" && !request.replace && request.output.empty()) {
            return Report(request.file, content);
        }
        throw Failure("--from, --replace and --output need --to");
    }
    try {
        const Units units = Decode(request.file, content, request.from, request.replace);
        const std::string converted = Encode(units, request.to, request.replace);
        if (request.output.empty()) {
            Print(converted);
        } else {
            WriteFile(request.output, converted);
        }
        return 0;
    } catch (const StringConversionException& failure) {
        throw Failure(request.file + ": " + ReasonOf(failure));
    }
}
