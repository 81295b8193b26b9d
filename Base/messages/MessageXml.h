#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnPtrI.h>
#include <Base/messages/Message.h>
#include <ZLiteXML/UTF8EventHandler.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

namespace ZBase {

/// Writes a message tree as one element "message". The format has no number formats, no wide text, and no
/// numbers of unknown domains. Throws what the writer throws, and `std::bad_alloc`.
ZBASE_API void SerializeToXML(const Message& message, ZLiteXML::UTF8Writer& writer);

/// Clears `message` and returns a handler that fills it from such a document; `reader` must pass it the
/// document from its root on, whatever the root's name. The message must outlive the handler and must not be
/// used until the root has ended. Nested messages arrive when the outermost nested element ends; when the
/// document ends early, the message keeps what had arrived. Unknown elements are ignored. The handler throws
/// `StringConversionException` for an element name that is not UTF-8 and for a language that is not
/// hexadecimal, and `std::bad_alloc`.
ZBASE_API ReturnPtrI<ZLiteXML::UTF8EventHandler> GetSerializerFromXML(Message& message,
                                                                      ZLiteXML::UTF8Reader& reader);

}  // namespace ZBase
