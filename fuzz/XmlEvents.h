#pragma once

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/messages/Message.h>
#include <ZLiteXML/UTF8EventHandler.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace fuzz {

struct XmlEvent {
    enum EKind { eStart, eAttribute, eText, eComment, eEnd };
    EKind kind;
    std::string name;  // or text
    std::string value;
    bool operator==(const XmlEvent&) const = default;
};

/// Takes the events down; texts that follow each other are one.
class XmlEvents final : public ZLiteXML::UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    void StartElement(const char* name) override { events.push_back({XmlEvent::eStart, name, {}}); }
    void Attribute(const char* name, const char* value) override {
        events.push_back({XmlEvent::eAttribute, name, value});
    }
    void Characters(const char* text) override {
        if (*text == 0) return;
        if (events.empty() || events.back().kind != XmlEvent::eText)
            events.push_back({XmlEvent::eText, {}, {}});
        events.back().name += text;
    }
    void Comment(const char* text) override { events.push_back({XmlEvent::eComment, text, {}}); }
    void EndElement(const char* name) override { events.push_back({XmlEvent::eEnd, name, {}}); }

    std::vector<XmlEvent> events;
};

/// What a reader makes of a document: its events, and the text of its failure, if it fails.
struct XmlReading {
    std::vector<XmlEvent> events;
    std::string failure;
    bool operator==(const XmlReading&) const = default;
};

inline XmlReading ReadXml(const std::string& document, std::size_t piece,
                          const ZLiteXML::ReaderBounds& bounds = {}) {
    const ZBase::SmartPtrI<XmlEvents> handler(new XmlEvents);
    const auto reader = ZLiteXML::CreateReader(bounds);
    reader->PushHandler(handler.Get());
    XmlReading reading;
    try {
        for (std::size_t at = 0; at < document.size(); at += piece)
            reader->Read(document.data() + at, std::min(piece, document.size() - at));
        reader->Finish();
    } catch (const ZBase::Message& failure) {
        reading.failure = failure.GetLocalizedText(0);
    }
    reading.events = std::move(handler->events);
    return reading;
}

inline void Tell(ZLiteXML::UTF8EventHandler& to, const XmlEvent& event) {
    switch (event.kind) {
        case XmlEvent::eStart:
            return to.StartElement(event.name.c_str());
        case XmlEvent::eAttribute:
            return to.Attribute(event.name.c_str(), event.value.c_str());
        case XmlEvent::eText:
            return to.Characters(event.name.c_str());
        case XmlEvent::eComment:
            return to.Comment(event.name.c_str());
        case XmlEvent::eEnd:
            return to.EndElement(event.name.c_str());
    }
}

}  // namespace fuzz
