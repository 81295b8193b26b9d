#pragma once

#include <Base/frame/WideString.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// Ends a command with one line on the error stream and exit status 1.
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Ends a command silently: the reader has closed the standard output.
class ClosedPipe {};

/// The text of a `Failure` of a system call on a file: "NAME: reason".
Failure FileFailure(const std::string& file, int errorNumber);

/// Writes to the standard output. Throws `ClosedPipe` when its reader has closed it, and `Failure` when it
/// can't be written.
void Print(std::string_view text);

/// Prints a line of a name and a value, with the values aligned.
void PrintRow(std::string name, std::string_view value);

/// Throws as `Print` does when earlier output could not be written.
void FinishOutput();

/// Whether the standard output is a terminal.
bool IsTerminal();

/// Whether the standard output is a terminal that is to show colours: not if `NO_COLOR` is set, whatever its
/// value, nor with `TERM=dumb`.
bool IsColoured();

/// `text` in an ANSI style such as "1" (bold) or "31" (red), if the output is coloured.
std::string Styled(std::string_view text, const char* style);

/// Whether `TERM` is a terminal without cursor movement.
bool IsDumbTerminal();

/// Passes a file to `take` piece by piece, as long as that returns true; "-" is the standard input. Throws
/// `Failure`, and the exceptions of `take`.
void ReadPieces(const std::string& file,
                const std::function<bool(const char* bytes, std::size_t size)>& take);

/// The size of a file that can be read twice, on a disk; else none.
std::optional<std::uint64_t> FileSize(const std::string& file);

/// The content of a file; "-" is the standard input. Throws `Failure`.
std::string ReadFile(const std::string& file);

/// UTF-8 of a wide text, with bad units replaced; for display.
std::string Narrow(const unsigned short* text);

/// The wide text of UTF-8; bad octets are replaced.
ZBase::WideString Wide(const std::string& text);

/// An untrusted text for a terminal: control characters, characters that change the direction of writing and
/// invalid UTF-8 become "\xNN", octet by octet.
std::string Shown(std::string_view text);

std::string Hex(unsigned int value, std::size_t digits);
