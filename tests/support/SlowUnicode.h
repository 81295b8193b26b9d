#pragma once

#include <string>

namespace test {

using Units = std::basic_string<unsigned short>;

/// The expected result of a conversion: a text, or the text of a failure.
template <class Text>
struct Outcome {
    Text text;
    std::string failure;  // empty if there is none
};

// An independent implementation of the conversions' rules: octets are strings of "0" and "1", nothing is
// fast, and nothing is shared with the library.

Outcome<Units> SlowUtf8ToWide(const std::string& octets, bool replace);
Outcome<std::string> SlowWideToUtf8(const Units& units, bool replace);
Outcome<std::string> SlowUtf16ToUtf8(const Units& units);

/// The UTF-8 form of one value.
std::string SlowUtf8(unsigned long value);

/// The UTF-16 form of one value.
Units SlowUtf16(unsigned long value);

}  // namespace test
