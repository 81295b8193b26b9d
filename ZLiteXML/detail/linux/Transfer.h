#pragma once

#include <string_view>

namespace ZLiteXML {

// Copies between open files. Zero, or an error number.

int WriteAll(int to, std::string_view bytes);

/// All of one file to the position of another.
int CopyAll(int from, int to);

/// Replaces the content of one file by another's. The old content is kept until the space for the new one is
/// reserved.
int ReplaceContent(int from, int to);

/// While it exists, writing to a pipe without a reader fails and does not end the process (SIGPIPE).
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
