#pragma once

#include <string>

namespace test {

/// The system's errors for the logic: the results of its functions, and their calls.
struct SystemErrors {
    std::basic_string<unsigned short> text;  // written into the buffer, with a terminator, as far as it fits
    unsigned int result = 0;                 // of `FormatSystemMessage`
    unsigned int codeAfter = 0;              // the last code that `FormatSystemMessage` leaves
    const char* description = nullptr;       // of `DescribeErrorNumber`

    unsigned int lastCode = 0;
    unsigned int askedCode = 0;
    unsigned int askedLanguage = 0;
    unsigned int askedCapacity = 0;
    int askedErrorNumber = 0;
};

inline SystemErrors gSystemErrors;

}  // namespace test
