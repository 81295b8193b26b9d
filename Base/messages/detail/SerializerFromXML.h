#pragma once

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/messages/detail/TreeBuilder.h>
#include <ZLiteXML/UTF8EventHandler.h>
#include <ZLiteXML/UTF8Reader.h>

#include <string>

namespace ZBase {

/// Handles a document whose root is a message, and fills a message from it.
class SerializerFromXML final : public ZLiteXML::UTF8EventHandler,
                                public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    /// Clears the message before its nested content is read.
    SerializerFromXML(Message& message, ZLiteXML::UTF8Reader& reader);
    ~SerializerFromXML() override;

    void StartElement(const char* name) override;

private:
    class MessageElementParser;
    class TextElementParser;

    void PushMessageParser();

    detail::TreeBuilder mTree;
    std::string mCharacters;         // of the one child element that is open
    ZLiteXML::UTF8Reader* mpReader;  // not owned
    SmartPtrI<TextElementParser> mpTextParser;
};

}  // namespace ZBase
