// The input is a document, or the declarations and the content of one, in UTF-8 or in UTF-16, that is read in
// pieces; the expectation is what the parser below it says of the whole, without our refusals. An accepted
// one is written, and read back as the same.
//
// For: ZLiteXML/detail/ExpatReader.cpp

#include <expat.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "fuzz/Check.h"
#include "fuzz/XmlEvents.h"
#include "tests/support/Choices.h"

namespace {

// Small, so that the fuzzer reaches them.
constexpr ZLiteXML::ReaderBounds kBounds{.depth = 40, .size = 6000};

struct Parsing {
    fuzz::XmlEvents& events;
    std::size_t depth = 0;
    bool isRefused = false;
    std::map<std::string, int> declared = {};
};

Parsing& Of(void* parsing) {
    return *static_cast<Parsing*>(parsing);
}

// Whether the document is well-formed and has nothing that is refused; its events, if so.
bool SlowlyRead(const std::string& document, fuzz::XmlEvents& events) {
    Parsing parsing{events};
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> owner(XML_ParserCreate(nullptr),
                                                                        XML_ParserFree);
    XML_Parser const parser = owner.get();
    XML_SetUserData(parser, &parsing);
    XML_SetElementHandler(
        parser,
        [](void* to, const char* name, const char** attributes) {
            Of(to).isRefused = Of(to).isRefused || Of(to).depth++ > kBounds.depth;
            Of(to).events.StartElement(name);
            for (; *attributes != nullptr; attributes += 2)
                Of(to).events.Attribute(attributes[0], attributes[1]);
        },
        [](void* to, const char* name) {
            --Of(to).depth;
            Of(to).events.EndElement(name);
        });
    XML_SetCharacterDataHandler(parser, [](void* to, const char* text, int size) {
        Of(to).events.Characters(std::string(text, static_cast<std::size_t>(size)).c_str());
    });
    XML_SetCommentHandler(parser, [](void* to, const char* text) { Of(to).events.Comment(text); });
    XML_SetXmlDeclHandler(parser, [](void* to, const char* version, const char*, int) {
        const std::string text = version == nullptr ? "1.0" : version;
        Of(to).isRefused = Of(to).isRefused || text.rfind("1.", 0) != 0 || text.size() < 3 ||
                           text.find_first_not_of("0123456789", 2) != std::string::npos;
    });
    XML_SetEntityDeclHandler(parser, [](void* to, const char*, int, const char*, int, const char*,
                                        const char*, const char*, const char*) { Of(to).isRefused = true; });
    XML_SetSkippedEntityHandler(parser, [](void* to, const char*, int) { Of(to).isRefused = true; });
    XML_SetAttlistDeclHandler(
        parser, [](void* to, const char* element, const char*, const char*, const char* value, int) {
            Of(to).isRefused = Of(to).isRefused || value != nullptr || ++Of(to).declared[element] > 128;
        });
    const bool isGood =
        XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK;
    return isGood && !parsing.isRefused && document.size() <= kBounds.size;
}

std::string Utf16(const std::string& latin) {
    std::string text = "\xFF\xFE";
    for (const char octet : latin) text += {octet, '\0'};
    return text;
}

std::string DocumentOf(test::Choices& choices) {
    const unsigned int form = choices.Below(4);
    if (form < 2) return choices.Rest();
    const std::string rest = choices.Rest();
    const std::size_t end = rest.find('\0');
    const std::string content = end == std::string::npos ? "<m/>" : rest.substr(end + 1);
    const std::string document = "<!DOCTYPE m [" + rest.substr(0, end) + "]>" + content;
    return form == 2 ? document : Utf16(document);
}

void CheckRoundTrip(const fuzz::XmlReading& reading) {
    std::string document;
    const auto writer = ZLiteXML::CreateStringWriter(document);
    for (const fuzz::XmlEvent& event : reading.events) fuzz::Tell(*writer, event);
    const fuzz::XmlReading again = fuzz::ReadXml(document, document.size());
    fuzz::Check(again == reading, "what was written is another document");
}

// Once it has ended, or failed, a reader reads nothing more.
void CheckEnd() {
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(nullptr);
    reader->Read("<m>t<!--c--></m>", 16);
    reader->Finish();
    bool isTold = false;
    try {
        reader->Read(" ", 1);
    } catch (const ZBase::Message&) {
        isTold = true;
    }
    fuzz::Check(isTold, "a reader that reads on");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    test::Choices choices(data, size);
    const std::size_t piece = 1 + choices.Below(256);
    const std::string document = DocumentOf(choices);
    const fuzz::XmlReading whole = fuzz::ReadXml(document, document.size() + 1, kBounds);
    fuzz::Check(fuzz::ReadXml(document, piece, kBounds) == whole, "it matters how the document was cut");

    const ZBase::SmartPtrI<fuzz::XmlEvents> expected(new fuzz::XmlEvents);
    const bool isAccepted = SlowlyRead(document, *expected.Get());
    fuzz::Check(isAccepted == whole.failure.empty(), "whether the document is accepted");
    CheckEnd();
    if (!isAccepted) return 0;
    fuzz::Check(whole.events == expected->events, "the events of the document");
    CheckRoundTrip(whole);
    return 0;
}
