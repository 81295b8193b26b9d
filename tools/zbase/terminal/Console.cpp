#include "Console.h"
#include "tools/system/Files.h"
#include "tools/system/Terminal.h"

#include <Base/ZBase.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// An open file, closed at the end of its scope.
class Descriptor {
public:
    explicit Descriptor(int number) : mNumber(number) {}
    ~Descriptor() {
        if (mNumber > 0) CloseDescriptor(mNumber);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return mNumber; }

private:
    int mNumber;
};

bool IsPlain(unsigned int character) {
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    const bool turnsText = character == 0x061C || character == 0x200E || character == 0x200F ||
                           (character >= 0x2028 && character <= 0x202E) ||
                           (character >= 0x2066 && character <= 0x2069);
    return !isControl && !turnsText;
}

void AppendOctets(std::string& shown, std::string_view octets) {
    for (const char c : octets) {
        const auto octet = static_cast<unsigned char>(c);
        shown += {'\\', 'x', "0123456789ABCDEF"[octet >> 4], "0123456789ABCDEF"[octet & 0x0F]};
    }
}

// Appends a text without a flaw.
void AppendPlain(std::string& shown, std::string_view text) {
    constexpr unsigned int replacement = 0xFFFD;  // its overlong forms are no flaw, but not for terminals
    const std::u16string units = ZBase::ToUTF16(text, false);
    for (std::size_t unit = 0; !text.empty(); ++unit) {
        const std::size_t size = ZBase::UTF8TotalBytes(text.front());
        const bool isPair = (units[unit] & 0xFC00) == 0xD800;
        const bool isOverlong = units[unit] == replacement && size != 3;
        if (isPair || (IsPlain(units[unit]) && !isOverlong)) {
            shown += text.substr(0, size);
        } else {
            AppendOctets(shown, text.substr(0, size));
        }
        text.remove_prefix(size);
        if (isPair) ++unit;
    }
}

std::string DescribeErrorNumber(int errorNumber) {
    const ZBase::ReturnWString text = ZBase::GetStandardCLibraryErrorDescriptionOrNULL(errorNumber);
    return text.c_str() == nullptr ? "error " + std::to_string(errorNumber) : Narrow(text.c_str());
}

[[noreturn]] void ThrowOutputFailure(int errorNumber) {
    if (errorNumber == EPIPE) throw ClosedPipe();
    throw FileFailure("standard output", errorNumber);
}

}  // namespace

Failure FileFailure(const std::string& file, int errorNumber) {
    return Failure(file + ": " + DescribeErrorNumber(errorNumber));
}

void Print(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        ThrowOutputFailure(errno);
    }
}

void PrintRow(std::string name, std::string_view value) {
    constexpr std::size_t width = 12;
    name.resize(width, ' ');
    Print(name);
    Print(value);
    Print("\n");
}

void FinishOutput() {
    if (std::fflush(stdout) != 0) ThrowOutputFailure(errno);
}

bool IsDumbTerminal() {
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && std::strcmp(terminal, "dumb") == 0;
}

bool IsTerminal() {
    return IsTerminalStream(1);
}

bool IsColoured() {
    static const bool isColoured = [] {
        const char* const refused = std::getenv("NO_COLOR");
        return IsTerminal() && !IsDumbTerminal() && (refused == nullptr || *refused == 0);
    }();
    return isColoured;
}

std::string Styled(std::string_view text, const char* style) {
    if (!IsColoured()) return std::string(text);
    return "\033[" + std::string(style) + "m" + std::string(text) + "\033[0m";
}

void ReadPieces(const std::string& file,
                const std::function<bool(const char* bytes, std::size_t size)>& take) {
    const Descriptor input(file == "-" ? 0 : OpenToRead(file));
    if (input.Get() < 0) throw FileFailure(file, errno);
    char piece[65536];
    for (;;) {
        const long count = ReadSome(input.Get(), piece, sizeof piece);
        if (count < 0) throw FileFailure(file, errno);
        if (count == 0 || !take(piece, static_cast<std::size_t>(count))) return;
    }
}

std::string ReadFile(const std::string& file) {
    std::string content;
    ReadPieces(file, [&](const char* bytes, std::size_t size) {
        content.append(bytes, size);
        return true;
    });
    return content;
}

std::optional<std::uint64_t> FileSize(const std::string& file) {
    return file == "-" ? std::nullopt : RegularFileSize(file);
}

ZBase::WideString Wide(const std::string& text) {
    return ZBase::UTF8ToWideChar(text.c_str(), true).c_str();
}

std::string Narrow(const unsigned short* text) {
    if (text == nullptr) return "";
    try {
        return ZBase::WideCharToUTF8(text, true).c_str();
    } catch (const ZBase::StringConversionException&) {
        return ZBase::WideCharToASCII(text, true).c_str();
    }
}

std::string Shown(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t whole = ZBase::ScanUTF8(text).octets;
        AppendPlain(shown, text.substr(0, whole));
        text.remove_prefix(whole);
        const std::size_t bad = std::min<std::size_t>(text.size(), 1);
        AppendOctets(shown, text.substr(0, bad));
        text.remove_prefix(bad);
    }
    return shown;
}

std::string Hex(unsigned int value, std::size_t digits) {
    std::string text = ZBase::ToHexUpperString(static_cast<int>(value)).c_str();
    if (text.size() < digits) text.insert(0, digits - text.size(), '0');
    return text;
}
