#pragma once

#include <Base/ZBase.h>

#include <string>

/// Fills a message from an XML document; "-" is the standard input. Throws `Failure`, which names the file;
/// the message then has what arrived before, also in messages that have not ended.
void ReadDocument(const std::string& file, ZBase::Message& message, const ZLiteXML::ReaderBounds& bounds);

/// The same from a document in memory.
void ReadDocumentText(const std::string& document, ZBase::Message& message);

/// A message as an indented XML document; what XML cannot hold is replaced.
std::string ToDocument(const ZBase::Message& message);
