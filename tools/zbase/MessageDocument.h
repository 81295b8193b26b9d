#pragma once

#include <Base/ZBase.h>

#include <string>

/// Fills a message from an XML document; "-" is the standard input. Throws `Failure`, which names the file.
void ReadDocument(const std::string& file, ZBase::Message& message);

/// The same from a document in memory.
void ReadDocumentText(const std::string& document, ZBase::Message& message);

/// A message as an indented XML document.
std::string ToDocument(const ZBase::Message& message);
