#pragma once

#include <string_view>

namespace ZLiteXML {

// Bytes on their way between open files. Zero, or an error number.

int WriteAll(int to, std::string_view bytes);

/// All of one file to the place where another stands.
int CopyAll(int from, int to);

/// Puts the content of one file into another, which keeps its own as long as it is not sure that there is
/// room.
int ReplaceContent(int from, int to);

/// While it lives, writing to a pipe that nobody reads fails and does not end the process.
class BrokenPipesFail {
public:
    BrokenPipesFail();
    ~BrokenPipesFail();
    BrokenPipesFail(const BrokenPipesFail&) = delete;
    BrokenPipesFail& operator=(const BrokenPipesFail&) = delete;

private:
    bool mIsBlocked = false;  // by this object
};

}  // namespace ZLiteXML
