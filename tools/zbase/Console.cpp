#include "Console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
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
        if (mNumber > STDIN_FILENO) close(mNumber);
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

// The octets of the character that the text begins with; 0 if it is none that is plain.
std::size_t PlainCharacter(std::string_view text) {
    const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned int first = octet(0);
    const std::size_t size = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
    if (size == 0 || size > text.size()) return 0;
    unsigned int character = size == 1 ? first : first & (0x7Fu >> size);
    for (std::size_t i = 1; i != size; ++i) {
        if (octet(i) >> 6 != 2) return 0;
        character = character << 6 | (octet(i) & 0x3Fu);
    }
    const bool isTooLong = (size == 3 && character < 0x800) || (size == 4 && character < 0x10000);
    const bool isNone = character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF);
    return !isTooLong && !isNone && IsPlain(character) ? size : 0;
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

bool IsColoured() {
    static const bool isColoured = [] {
        const char* const refused = std::getenv("NO_COLOR");
        const char* const terminal = std::getenv("TERM");
        const bool isDumb = terminal != nullptr && std::strcmp(terminal, "dumb") == 0;
        return isatty(STDOUT_FILENO) == 1 && !isDumb && (refused == nullptr || *refused == 0);
    }();
    return isColoured;
}

std::string Styled(std::string_view text, const char* style) {
    if (!IsColoured()) return std::string(text);
    return "\033[" + std::string(style) + "m" + std::string(text) + "\033[0m";
}

void ReadPieces(const std::string& file,
                const std::function<void(const char* bytes, std::size_t size)>& take) {
    const Descriptor input(file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (input.Get() < 0) throw FileFailure(file, errno);
    char piece[65536];
    for (;;) {
        const ssize_t count = read(input.Get(), piece, sizeof piece);
        if (count == 0) return;
        if (count > 0) {
            take(piece, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw FileFailure(file, errno);
        }
    }
}

std::string ReadFile(const std::string& file) {
    std::string content;
    ReadPieces(file, [&](const char* bytes, std::size_t size) { content.append(bytes, size); });
    return content;
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
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = PlainCharacter(text.substr(at));
        if (size != 0) {
            shown += text.substr(at, size);
            at += size;
            continue;
        }
        const auto octet = static_cast<unsigned char>(text[at++]);
        shown += {'\\', 'x', "0123456789ABCDEF"[octet >> 4], "0123456789ABCDEF"[octet & 0x0F]};
    }
    return shown;
}

std::string Hex(unsigned int value, std::size_t digits) {
    std::string text = ZBase::ToHexUpperString(static_cast<int>(value)).c_str();
    if (text.size() < digits) text.insert(0, digits - text.size(), '0');
    return text;
}
