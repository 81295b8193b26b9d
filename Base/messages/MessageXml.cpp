#include <Base/frame/SmartPtrI.h>
#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/MessageXml.h>
#include <Base/messages/detail/Records.h>
#include <Base/messages/detail/SerializerFromXML.h>
#include <Base/messages/detail/XmlNames.h>
#include <Base/text/NumberText.h>

#include <new>
#include <vector>

namespace ZBase {

using namespace detail;

namespace {

class Serializer {
public:
    Serializer(const Message& message, ZLiteXML::UTF8Writer& writer) : mCursor(message), mpWriter(&writer) {}

    void Write() {
        mpWriter->StartElement(kMessageElement);
        do {
            WriteFields();
        } while (GoToNext());
        mpWriter->EndElement(kMessageElement);
    }

private:
    void WriteElement(const char* name, const char* text) {
        mpWriter->StartElement(name);
        mpWriter->Characters(text);
        mpWriter->EndElement(name);
    }

    void WriteFields();
    void WriteTexts(const Block& block);
    bool GoToNext();
    bool Climb();

    ConstMessageCursor mCursor;
    SmartPtrI<ZLiteXML::UTF8EventHandler> mpWriter;
    std::vector<const char*> mParameters;  // of the current message; kept for its memory
};

void Serializer::WriteFields() {
    const Header* header = nullptr;
    const char* textTemplate = nullptr;
    mParameters.clear();
    const Block& block = BlockOf(mCursor.GetCurrentMessage());
    RecordWalker walker(block);
    while (const Record* record = walker.Next()) {
        if (record->tag == TAG_HEADER) header = &record->As<Header>();
        if (record->tag == TAG_TEMPLATE) textTemplate = record->Text();
        if (record->tag == TAG_PARAMETER) mParameters.push_back(record->Text());
    }
    if (header != nullptr) {
        WriteElement(kDomainElement, ToString(header->domain));
        WriteElement(kIDElement, ToDecimalString(header->id).c_str());
    }
    if (textTemplate != nullptr) WriteElement(kTemplateElement, textTemplate);
    for (const char* parameter : mParameters) WriteElement(kParameterElement, parameter);
    WriteTexts(block);
}

void Serializer::WriteTexts(const Block& block) {
    RecordWalker walker(block);
    while (const Record* record = walker.Next()) {
        if (record->tag != TAG_LOCALIZED_TEXT) continue;
        const LocalizedText& text = record->As<LocalizedText>();
        mpWriter->StartElement(kTextElement);
        mpWriter->Attribute(kLanguageAttribute, ToHexUpperString(text.language).c_str());
        mpWriter->Characters(text.Text());
        mpWriter->EndElement(kTextElement);
    }
}

// Lower-level messages come before same-level ones. False at the end of the tree.
bool Serializer::GoToNext() {
    if (mCursor.LowerLevelMessageIsUnvisited()) {
        if (!mCursor.GoToLowerLevelMessage(false)) throw std::bad_alloc();
        mpWriter->StartElement(kLowerLevelElement);
        return true;
    }
    while (!mCursor.SameLevelMessageIsUnvisited()) {
        if (!Climb()) return false;
    }
    if (!mCursor.GoToSameLevelMessage(false)) throw std::bad_alloc();
    mpWriter->StartElement(kSameLevelElement);
    return true;
}

bool Serializer::Climb() {
    const unsigned short left = mCursor.GetCurrentOffset().same_level_offset;
    if (!mCursor.GoToParent()) return false;
    const bool wasSameLevel = mCursor.GetCurrentOffset().same_level_offset != left;
    mpWriter->EndElement(wasSameLevel ? kSameLevelElement : kLowerLevelElement);
    return true;
}

}  // namespace

void SerializeToXML(const Message& message, ZLiteXML::UTF8Writer& writer) {
    Serializer(message, writer).Write();
}

ReturnPtrI<ZLiteXML::UTF8EventHandler> GetSerializerFromXML(Message& message, ZLiteXML::UTF8Reader& reader) {
    ZLiteXML::UTF8EventHandler* serializer = new SerializerFromXML(message, reader);
    serializer->AddRef();
    return ReturnPtrI<ZLiteXML::UTF8EventHandler>(serializer);
}

}  // namespace ZBase
