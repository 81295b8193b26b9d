#pragma once

#include <Base/ZBase.h>

#include <string>
#include <string_view>
#include <vector>

/// A text with each line indented by two columns.
std::string Indented(std::string_view lines);

/// A message for a reader, as in a log, indented.
void PrintTree(const ZBase::Message& message);

/// The bytes of a message, record by record: the offset in its block, the length, the kind and the content.
/// Nested messages are indented.
void PrintRecords(const ZBase::Message& message);

struct LocalizedText {
    unsigned short language;
    const char* text;  // in the message
};

/// The texts of one message in all languages, as they are stored.
std::vector<LocalizedText> LocalizedTexts(const ZBase::Message& message);
