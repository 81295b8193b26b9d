// The input is a program of events for a writer, in any order and with any octets. What a document can't hold
// is refused, or replaced; the rest is read back as it was told.
//
// For: ZLiteXML/detail/DocumentWriter.cpp ZLiteXML/detail/Characters.cpp

#include <ZLiteXML/XMLException.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Check.h"
#include "fuzz/XmlEvents.h"
#include "tests/support/Choices.h"
#include "tests/support/SlowUnicode.h"

namespace {

using fuzz::XmlEvent;

struct Name {
    const char* text;
    bool isGood;
};

// The rules of names are tested elsewhere, each character.
constexpr Name kNames[] = {
    {"m", true},      {"a-b.c1", true}, {"_x", true},       {"n:s", true},  {"\xC3\xA4rger", true},
    {"", false},      {"1a", false},    {"-a", false},      {"a b", false}, {"\xFF", false},
    {"a\xC3", false}, {"<", false},     {"\xE2\x82", false}};

bool IsXmlUnit(unsigned int unit) {
    return unit >= 0x20 || unit == '\t' || unit == '\n' || unit == '\r';
}

// As a reader gives it back; none if it is refused.
std::optional<std::string> Stored(const std::string& text, bool isComment, bool replaces) {
    const test::Outcome<test::Units> decoded = test::SlowUtf8ToWide(text, true);
    bool isGood = test::SlowUtf8ToWide(text, false).failure.empty();
    std::string stored;
    for (std::size_t i = 0; i != decoded.text.size(); ++i) {
        unsigned long value = decoded.text[i];
        const bool endsComment =
            isComment && value == '-' && (i + 1 == decoded.text.size() || decoded.text[i + 1] == '-');
        if (!IsXmlUnit(decoded.text[i]) || (isComment && value == '\r') || endsComment) {
            isGood = false;
            value = 0xFFFD;
        } else if (value >= 0xD800 && value < 0xDC00) {
            value = 0x10000 + (value - 0xD800) * 0x400 + (decoded.text[++i] - 0xDC00ul);
        }
        stored += test::SlowUtf8(value);
    }
    if (!isGood && !replaces) return std::nullopt;
    return stored;
}

// The events as they have to come back, and whether one more is accepted.
class Model {
public:
    explicit Model(bool replaces) : mReplaces(replaces) {}

    bool Take(const XmlEvent& event, bool isGoodName) {
        switch (event.kind) {
            case XmlEvent::eStart:
                if (mHasEnded || !isGoodName) return false;
                mOpen.push_back(event.name);
                mAttributes.clear();
                mInStart = true;
                events.StartElement(event.name.c_str());
                return true;
            case XmlEvent::eAttribute:
                return mInStart && isGoodName && TakeAttribute(event);
            case XmlEvent::eText:
                return event.name.empty() || (!mOpen.empty() && TakeText(event.name));
            case XmlEvent::eComment: {
                const std::optional<std::string> text = Stored(event.name, true, mReplaces);
                if (text) events.Comment(text->c_str());
                mInStart = false;
                return text.has_value();
            }
            default:
                if (mOpen.empty() || mOpen.back() != event.name) return false;
                events.EndElement(event.name.c_str());
                mOpen.pop_back();
                mInStart = false;
                mHasEnded = mOpen.empty();
                return true;
        }
    }

    bool HasEnded() const { return mHasEnded; }
    const std::string* Open() const { return mOpen.empty() ? nullptr : &mOpen.back(); }

    fuzz::XmlEvents events;

private:
    bool TakeAttribute(const XmlEvent& event) {
        for (const std::string& name : mAttributes)
            if (name == event.name) return false;
        mAttributes.push_back(event.name);
        const std::optional<std::string> value = Stored(event.value, false, mReplaces);
        if (value) events.Attribute(event.name.c_str(), value->c_str());
        return value.has_value();
    }
    bool TakeText(const std::string& told) {
        const std::optional<std::string> text = Stored(told, false, mReplaces);
        if (text) events.Characters(text->c_str());
        mInStart = false;
        return text.has_value();
    }

    bool mReplaces;
    bool mInStart = false;
    bool mHasEnded = false;
    std::vector<std::string> mOpen;
    std::vector<std::string> mAttributes;
};

std::string Text(test::Choices& choices) {
    std::string text = choices.Octets();
    text = text.c_str();
    for (unsigned int doublings = choices.Below(32) == 0 ? 10 : 0; doublings != 0; --doublings) text += text;
    return text;
}

bool IsTaken(ZLiteXML::UTF8Writer& writer, const XmlEvent& event) {
    try {
        fuzz::Tell(writer, event);
    } catch (const ZLiteXML::XMLException& failure) {
        fuzz::Check(failure.GetDomain() == 0 && failure.GetID() == -1, "domain or id of a failure");
        return false;
    }
    return true;
}

// Mostly what may come next.
XmlEvent Next(test::Choices& choices, const Model& model, bool& isGoodName) {
    const Name name = kNames[choices.Below(std::size(kNames) * 2) % (choices.Flag() ? 5 : std::size(kNames))];
    isGoodName = name.isGood;
    switch (choices.Below(8)) {
        case 0:
        case 1:
            return {XmlEvent::eStart, name.text, {}};
        case 2: {
            std::string attribute = name.text;
            if (isGoodName) attribute += std::to_string(choices.Below(40));
            return {XmlEvent::eAttribute, attribute, Text(choices)};
        }
        case 3:
            return {XmlEvent::eComment, Text(choices), {}};
        case 4:
        case 5:
            return {XmlEvent::eText, Text(choices), {}};
        default:
            return {XmlEvent::eEnd,
                    model.Open() != nullptr && choices.Below(16) != 0 ? *model.Open() : name.text,
                    {}};
    }
}

// Line breaks are between elements, and in no text.
bool AreEqual(const std::vector<XmlEvent>& read, const std::vector<XmlEvent>& told, bool isIndented) {
    if (!isIndented) return read == told;
    std::vector<XmlEvent> without;
    for (std::size_t i = 0; i != read.size(); ++i) {
        const bool isBreak = read[i].kind == XmlEvent::eText && read[i].name[0] == '\n' &&
                             read[i].name.find_first_not_of(' ', 1) == std::string::npos;
        if (!isBreak) without.push_back(read[i]);
    }
    std::vector<XmlEvent> expected;
    for (const XmlEvent& event : told) {
        const bool looksLikeBreak = event.kind == XmlEvent::eText && event.name[0] == '\n' &&
                                    event.name.find_first_not_of(' ', 1) == std::string::npos;
        if (!looksLikeBreak) expected.push_back(event);
    }
    return without == expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    test::Choices choices(data, size);
    const unsigned int options = choices.Below(16);
    const unsigned int indentation = options < 8 ? 0 : options % 8;
    const bool replaces = options % 2 != 0;
    std::string document = "before";
    const auto writer = ZLiteXML::CreateStringWriter(
        document, {.declaration = options % 4 < 2, .indentation = indentation, .replace = replaces});
    Model model(replaces);
    model.events.AddRef();  // it is no one's
    while (!choices.IsOver()) {
        bool isGoodName = false;
        const XmlEvent event = Next(choices, model, isGoodName);
        const bool expected = model.Take(event, isGoodName);
        fuzz::Check(IsTaken(*writer, event) == expected, "whether an event is accepted");
        if (expected) continue;
        for (const XmlEvent::EKind kind :
             {XmlEvent::eStart, XmlEvent::eAttribute, XmlEvent::eText, XmlEvent::eComment, XmlEvent::eEnd})
            fuzz::Check(!IsTaken(*writer, {kind, "m", "v"}), "an event behind a failure");
        break;
    }
    if (!model.HasEnded()) {
        fuzz::Check(document == "before", "an unfinished document");
        return 0;
    }
    const fuzz::XmlReading reading = fuzz::ReadXml(document, document.size() + 1);
    fuzz::Check(reading.failure.empty(), "what was written is refused");
    fuzz::Check(AreEqual(reading.events, model.events.events, indentation != 0),
                "what was written is something else");
    return 0;
}
