#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnPtrI.h>
#include <Base/messages/Message.h>
#include <ZLiteXML/UTF8EventHandler.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

namespace ZBase {

/// Writes a message tree as one element "message". What the format leaves out: number formats, the wide text,
/// and numbers of domains without a name. Throws what the writer throws, and `std::bad_alloc`.
ZBASE_API void SerializeToXML(const Message& message, ZLiteXML::UTF8Writer& writer);

/// Clears `message` and gives a handler that fills it from such a document; `reader` is to tell it the
/// document from its root on, whatever that is called. The message must outlive the handler and be left alone
/// until the root has ended. What is nested in it arrives when the outermost nested element ends; when the
/// document ends early, the message keeps what had arrived. Elements that the format does not know are passed
/// over. The handler throws `StringConversionException` for an element name that is not UTF-8 and for a
/// language that is not hexadecimal, and `std::bad_alloc`.
ZBASE_API ReturnPtrI<ZLiteXML::UTF8EventHandler> GetSerializerFromXML(Message& message,
                                                                      ZLiteXML::UTF8Reader& reader);

}  // namespace ZBase
