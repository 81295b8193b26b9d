#pragma once

#include <Base/ZBase.h>

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

/// Ends a command in silence: whoever read the standard output has seen enough.
class ClosedPipe {};

/// What `Failure` says of a system call on a file: "NAME: reason".
Failure FileFailure(const std::string& file, int errorNumber);

/// Writes to the standard output. Throws `ClosedPipe` when nobody reads it any more, and `Failure` when it
/// can't be written.
void Print(std::string_view text);

/// Prints a line of a name and a value, the values one under the other.
void PrintRow(std::string name, std::string_view value);

/// Throws as `Print` does when something that was printed could not be written.
void FinishOutput();

/// Whether the standard output is a terminal.
bool IsTerminal();

/// Whether the standard output is a terminal that is to show colours: not with `NO_COLOR` set to anything,
/// nor with `TERM=dumb`.
bool IsColoured();

/// `text` in an ANSI style such as "1" (bold) or "31" (red), if the output is coloured.
std::string Styled(std::string_view text, const char* style);

/// Whether `TERM` says that the terminal shows lines one after the other and nothing else.
bool IsDumbTerminal();

/// Hands a file on piece by piece, as long as `take` asks for more; "-" is the standard input. Throws
/// `Failure`, and what `take` throws.
void ReadPieces(const std::string& file,
                const std::function<bool(const char* bytes, std::size_t size)>& take);

/// The bytes of what can be read once more from its start, a file on a disk; else none.
std::optional<std::uint64_t> FileSize(const std::string& file);

/// A file as it is; "-" is the standard input. Throws `Failure`.
std::string ReadFile(const std::string& file);

/// UTF-8 of a wide text, whatever is in it; for people.
std::string Narrow(const unsigned short* text);

/// The wide text of UTF-8; what is none is replaced.
ZBase::WideString Wide(const std::string& text);

/// A text from elsewhere as a terminal may show it: what is a control character, changes the direction of
/// writing or is no UTF-8 comes as "\xNN", octet by octet.
std::string Shown(std::string_view text);

std::string Hex(unsigned int value, std::size_t digits);
