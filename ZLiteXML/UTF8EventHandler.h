#pragma once

#include <Base/frame/ReferenceCounted.h>
#include <ZLiteXML/Api.h>

namespace ZLiteXML {

/// Receives a document as a sequence of events, from a reader or from a program that writes one. All texts
/// are terminated UTF-8, valid during the call only. Each operation does nothing unless it is overridden.
class ZLITEXML_INTERFACE UTF8EventHandler : public virtual ZBase::ReferenceCounted {
public:
    virtual void StartElement(const char* /*name*/) {}

    /// Belongs to the last started element, before any content of it.
    virtual void Attribute(const char* /*name*/, const char* /*value*/) {}

    /// Text with all escapes resolved. One text can come in several calls.
    virtual void Characters(const char* /*text*/) {}

    virtual void Comment(const char* /*text*/) {}

    virtual void EndElement(const char* /*name*/) {}
};

}  // namespace ZLiteXML
