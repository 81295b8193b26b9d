#pragma once

#include <Base/frame/ReturnPtrI.h>
#include <ZLiteXML/UTF8EventHandler.h>

#include <string>

namespace ZLiteXML {

/// Writes the events that it is told as a document, well-formed or not at all. Throws `XMLException` for what
/// XML cannot hold (most control characters, U+FFFE, U+FFFF, what is not UTF-8, a name that is none, a
/// carriage return or "--" in a comment) and for events that make no document (an end without its start, an
/// attribute behind content, a second root), and `std::bad_alloc`; then the document is given up and every
/// further event throws. A document that has ended stays as it is; comments may follow it, each of which is
/// added at once.
class ZLITEXML_INTERFACE UTF8Writer : public virtual UTF8EventHandler {};

/// How a document is written.
struct WriterOptions {
    bool declaration = true;  // "<?xml ...?>" in front, with the encoding
    unsigned int indentation =
        0;                 // spaces for each level, up to 32 levels; 0: no line breaks between elements
    bool replace = false;  // write U+FFFD for each character that XML cannot hold and each sequence of octets
                           // that is not UTF-8, in texts, attributes and comments, instead of throwing
};

/// Writes to a file, which is there, or has its new content, from the end of the root element on; until then,
/// and when the document is given up, everything is as it was. The document is on the disk before it takes
/// the place of an old file, with whose permissions, and with whose owner if this process may give it away,
/// it goes on; a link stays a link. Until then it waits in a file that nobody else can read, not in memory.
/// What cannot be replaced is written to at the end of the root: a device, a pipe, a mount point, a file in a
/// directory that is closed to this process. A relative path starts at the current directory of this call.
/// Also throws `XMLException` when the file can't be written.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateFileWriter(const char* file,
                                                            const WriterOptions& options = {});

/// Writes to a text, which is replaced at the end of the root element and must live until then.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateStringWriter(std::string& document,
                                                              const WriterOptions& options = {});

}  // namespace ZLiteXML
