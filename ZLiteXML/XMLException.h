#pragma once

#include <Base/frame/Exceptions.h>
#include <ZLiteXML/Api.h>

namespace ZLiteXML {

/// A document could not be read or written. Thrown as `ZBase::ExceptionImpl<XMLException>`, with domain 0 and
/// id -1.
class ZLITEXML_INTERFACE XMLException : public ZBase::Message {
public:
    using ZBase::Message::Message;
};

}  // namespace ZLiteXML
