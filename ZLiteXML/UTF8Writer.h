#pragma once

#include <Base/frame/ReturnPtrI.h>
#include <ZLiteXML/UTF8EventHandler.h>

#include <string>

namespace ZLiteXML {

/// Writes its events as a well-formed document. Throws `XMLException` for text that XML cannot hold (most
/// control characters, U+FFFE, U+FFFF, invalid UTF-8, an invalid name, a carriage return or "--" in a
/// comment) and for invalid sequences of events (an end without its start, an attribute after content, a
/// second root), and `std::bad_alloc`; after that every further event throws. A document that has ended is
/// not changed; comments may follow it, each of which is added at once.
class ZLITEXML_INTERFACE UTF8Writer : public virtual UTF8EventHandler {};

/// Options of a writer.
struct WriterOptions {
    bool declaration = true;  // "<?xml ...?>" in front, with the encoding
    unsigned int indentation =
        0;                 // spaces for each level, up to 32 levels; 0: no line breaks between elements
    bool replace = false;  // write U+FFFD for each character that XML cannot hold and each sequence of octets
                           // that is not UTF-8, in texts, attributes and comments, instead of throwing
};

/// Writes to a file, which is created, or gets its new content, at the end of the root element; until then,
/// and after a failure, the old one is unchanged. The document is synchronised to the disk before it replaces
/// an old file, whose permissions it keeps, and whose owner if this process may change owners; a link stays a
/// link. Until then it is in a file that no other user can read, not in memory. A file that can't be replaced
/// is written to at the end of the root: a device, a pipe, a mount point, a file in a directory without write
/// permission. A relative path starts at the current directory of this call. Also throws `XMLException` when
/// the file can't be written, and when the new one is in its place but its directory can't be synchronised.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateFileWriter(const char* file,
                                                            const WriterOptions& options = {});

/// Writes to a text, which is assigned at the end of the root element and must live until then.
ZLITEXML_API ZBase::ReturnPtrI<UTF8Writer> CreateStringWriter(std::string& document,
                                                              const WriterOptions& options = {});

}  // namespace ZLiteXML
