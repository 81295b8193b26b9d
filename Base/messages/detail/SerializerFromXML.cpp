#include <Base/messages/MessageDomains.h>
#include <Base/messages/detail/SerializerFromXML.h>
#include <Base/messages/detail/XmlNames.h>
#include <Base/text/NumberText.h>
#include <Base/text/UnicodeConversions.h>

#include <cstring>
#include <string>
#include <utility>

namespace ZBase {

using detail::TreeBuilder;

namespace {

enum class EElement { None, Domain, ID, Template, Parameter, Text, LowerLevel, SameLevel };

struct ElementName {
    const char* name;
    EElement element;
};

constexpr ElementName kElements[] = {
    {detail::kDomainElement, EElement::Domain},       {detail::kIDElement, EElement::ID},
    {detail::kTemplateElement, EElement::Template},   {detail::kParameterElement, EElement::Parameter},
    {detail::kTextElement, EElement::Text},           {detail::kLowerLevelElement, EElement::LowerLevel},
    {detail::kSameLevelElement, EElement::SameLevel},
};

// Throws `StringConversionException` for a name that is not UTF-8.
EElement ToElement(const char* name) {
    for (const ElementName& known : kElements) {
        if (std::strcmp(name, known.name) == 0) return known.element;
    }
    UTF8ToWideChar(name, false);
    return EElement::None;
}

}  // namespace

// Handles the events of a text element and of its children. One object for all: only one text is open at a
// time. An element within a text starts the text anew, and ends like the text itself.
class SerializerFromXML::TextElementParser final : public ZLiteXML::UTF8EventHandler,
                                                   public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    TextElementParser(TreeBuilder& tree, std::string& characters) : mTree(tree), mCharacters(characters) {}

    void StartElement(const char*) override {
        mCharacters.clear();
        mStored = 0;
        mLanguage = 0;
    }

    void Attribute(const char* name, const char* value) override {
        if (std::strcmp(name, detail::kLanguageAttribute) == 0)
            mLanguage = static_cast<unsigned short>(HexToUnsignedInt(value, false));
    }

    void Characters(const char* text) override { mCharacters += text; }

    // Of an element within the text: only the growth since the last end is stored, or many ends within one
    // long text would store all of it many times.
    void EndElement(const char*) override {
        mStored = mTree.GrowLocalizedText(mLanguage, mCharacters, mStored) ? mCharacters.size() : 0;
    }

    // Of the text itself.
    void End() { mTree.SetLocalizedText(mLanguage, mCharacters); }

private:
    TreeBuilder& mTree;
    std::string& mCharacters;
    std::size_t mStored = 0;  // characters stored in the tree
    unsigned short mLanguage = 0;
};

// One for each message element; handles its content. The serializer outlives the reading.
class SerializerFromXML::MessageElementParser final : public ZLiteXML::UTF8EventHandler,
                                                      public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit MessageElementParser(SerializerFromXML& serializer) : mSerializer(serializer) {}

    void StartElement(const char* name) override;
    void Attribute(const char* name, const char* value) override;
    void Characters(const char* text) override;
    void EndElement(const char* name) override;

private:
    SerializerFromXML& mSerializer;
    EElement mElement = EElement::None;  // the child that is open, if it is a known one
    unsigned short mDomain = 0;
    int mID = 0;
};

void SerializerFromXML::MessageElementParser::StartElement(const char* name) {
    mElement = ToElement(name);
    mSerializer.mCharacters.clear();
    if (mElement == EElement::Text) {
        mSerializer.mpReader->PushHandler(mSerializer.mpTextParser.Get());
        mSerializer.mpTextParser->StartElement(name);
    } else if (mElement == EElement::LowerLevel) {
        mSerializer.mTree.Begin(detail::TAG_LOWER_LEVEL);
        mSerializer.PushMessageParser();
    } else if (mElement == EElement::SameLevel) {
        mSerializer.mTree.Begin(detail::TAG_SAME_LEVEL);
        mSerializer.PushMessageParser();
    }
}

// A reader may pass the attributes of a text here or to the text's own parser.
void SerializerFromXML::MessageElementParser::Attribute(const char* name, const char* value) {
    if (mElement == EElement::Text) mSerializer.mpTextParser->Attribute(name, value);
}

void SerializerFromXML::MessageElementParser::Characters(const char* text) {
    if (mElement != EElement::None) mSerializer.mCharacters += text;
}

// Ends the child that is open, whatever the name. After that no child is open: the end of an unknown element
// around it does nothing.
void SerializerFromXML::MessageElementParser::EndElement(const char*) {
    TreeBuilder& tree = mSerializer.mTree;
    const std::string& characters = mSerializer.mCharacters;
    switch (std::exchange(mElement, EElement::None)) {
        case EElement::Domain:
            mDomain = ToMessageDomain(characters.c_str());
            tree.SetDomainAndID(mDomain, mID);
            break;
        case EElement::ID:
            mID = DecimalToInt(characters.c_str());
            tree.SetDomainAndID(mDomain, mID);
            break;
        case EElement::Template:
            tree.SetTemplate(characters);
            break;
        case EElement::Parameter:
            tree.AddParameter(characters);
            break;
        case EElement::Text:
            mSerializer.mpTextParser->End();
            break;
        case EElement::LowerLevel:
        case EElement::SameLevel:
            tree.End();
            break;
        case EElement::None:
            break;
    }
}

SerializerFromXML::SerializerFromXML(Message& message, ZLiteXML::UTF8Reader& reader)
    : mTree((message.Clear(), message)),
      mpReader(&reader),
      mpTextParser(new TextElementParser(mTree, mCharacters)) {}

SerializerFromXML::~SerializerFromXML() = default;

void SerializerFromXML::StartElement(const char*) {
    mTree.Restart();
    PushMessageParser();
}

void SerializerFromXML::PushMessageParser() {
    const SmartPtrI<MessageElementParser> parser(new MessageElementParser(*this));
    mpReader->PushHandler(parser.Get());
}

}  // namespace ZBase
