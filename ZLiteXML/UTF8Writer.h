#pragma once

#include <Base/frame/ReturnPtrI.h>
#include <ZLiteXML/UTF8EventHandler.h>

#include <string>

namespace ZLiteXML {

/// Writes the events that it is told as a document, well-formed or not at all. Throws `XMLException` for what
/// XML cannot hold (most control characters, U+FFFE, U+FFFF, what is not UTF-8, a name that is none) and for
/// events that make no document (an end without its start, an attribute behind content, a second root), and
/// `std::bad_alloc`; then the document is given up and every further event throws.
class ZLITEXML_INTERFACE UTF8Writer : public virtual UTF8EventHandler {};

struct WriterOptions {
    bool declaration = true;  // "<?xml ...?>" in front, with the encoding
    unsigned int indentation =
        0;  // spaces for each level, up to 32 levels; 0: no line breaks between elements
};

/// Writes to a file, which is there, or has its new content, from the end of the root element on; until then,
/// and when the document is given up, everything is as it was. What is not an ordinary file (a pipe, a
/// device) is written to directly at that point. Also throws `XMLException` when the file can't be written.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateFileWriter(const char* file,
                                                            const WriterOptions& options = {});

/// Writes to a text, which is replaced at the end of the root element and must live until then.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateStringWriter(std::string& document,
                                                              const WriterOptions& options = {});

}  // namespace ZLiteXML
