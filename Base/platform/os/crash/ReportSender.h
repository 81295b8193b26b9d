#pragma once

#include <cstddef>

namespace ZBase::os {

/// A part of what is handed to the sender: octets, whose texts are UTF-8.
struct ReportPiece {
    const char* start;
    std::size_t length;
};

/// Prepares `RunReportSender`: the path of "zbase-crash-sender", which is in the library's directory, and a
/// copy of the environment variables of an upload.
void PrepareReportSender();

/// Starts the sender as a process of its own, hands it the pieces one behind the other, and waits at most
/// `seconds` for the one character that it answers. Gives that, or 0.
/// Runs on the crashed thread, which may have little stack left. No heap, no lock, and nothing of the C
/// library that has one.
char RunReportSender(const ReportPiece* pieces, std::size_t count, unsigned int seconds);

}  // namespace ZBase::os
