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

std::string Hex(unsigned int value, std::size_t digits) {
    std::string text = ZBase::ToHexUpperString(static_cast<int>(value)).c_str();
    if (text.size() < digits) text.insert(0, digits - text.size(), '0');
    return text;
}
