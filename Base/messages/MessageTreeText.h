#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// The options of `FormatTree`.
struct TreeOptions {
    unsigned short language = 0;              // Windows language id of the texts
    Message::Localizer* localizer = nullptr;  // held, not owned; null: a `SimpleMessageLocalizer`
    bool parameters = false;                  // each parameter of a message on a line behind it
    bool texts = false;                       // the same for the stored texts of all languages
    bool colour = false;                      // ANSI colours for a terminal
};

/// A message tree for a log or a terminal: one line for each message with the name of its domain, its id and
/// its text, indented by two spaces for each level up to the 32nd.
///
///     Server 110  Process 7 could not load its text. (Server message 110)
///       Server 103  names.txt is not text. (Server message 103)
///
/// Control characters in texts are escaped ("\n", "\x1B"), so a message stays on one line. "Unknown." stands
/// for a message without text. Only reads, in memory that is linear in the result. Throws `std::bad_alloc`
/// and what the localizer throws.
ZBASE_API ReturnString FormatTree(const Message& message, const TreeOptions& options = {});

}  // namespace ZBase
