#pragma once

#include <cstddef>

/// Whether a stream of the process, 1 or 2, is a terminal that understands control sequences.
bool IsTerminalStream(int stream);

/// How wide the terminal of the error stream is; 80 if it does not tell.
std::size_t TerminalColumns();
