#pragma once

#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Reader.h>

#include <string>

#include "tests/growth/Inputs.h"

namespace test {

/// A message of an XML document.
inline void ReadXml(const std::string& document, ZBase::Message& message) {
    const auto reader = ZLiteXML::CreateReader({.depth = 1'000'000, .size = document.size()});
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    reader->Read(document.data(), document.size());
    reader->Finish();
}

/// Messages each of which is inside of another, by an element of this name.
inline std::string NestedDocument(std::size_t count, const std::string& element) {
    constexpr const char* kContent =
        "<domain>Server</domain><id>7</id><template>a %1</template>"
        "<parameter>file</parameter>";
    std::string document = std::string("<message>") + kContent;
    for (std::size_t i = 1; i < count; ++i) document.append("<").append(element).append(">").append(kContent);
    for (std::size_t i = 1; i < count; ++i) document.append("</").append(element).append(">");
    return document + "</message>";
}

/// The kinds of messages, with as much of something as is asked for.
struct MessageKind {
    const char* name;
    void (*fill)(ZBase::Message& message, std::size_t count);
    std::size_t length;
    bool isTree;
};

inline const MessageKind kMessages[] = {
    {"a long template",
     [](ZBase::Message& message, std::size_t count) {
         message = ZBase::Message(300, 1, std::string(count, 'x').c_str());
     },
     8192, false},
    {"a template of placeholders",
     [](ZBase::Message& message, std::size_t count) {
         message = ZBase::Message(300, 1, Repeated("%1%%%9%", count).c_str());
         message << "p";
     },
     8192, false},
    {"a template of control characters",
     [](ZBase::Message& message, std::size_t count) {
         message = ZBase::Message(300, 1, Repeated("\x01\n\xFF\xED\xA0\x80", count).c_str());
     },
     4096, false},
    {"a long parameter",
     [](ZBase::Message& message, std::size_t count) {
         message = ZBase::Message(300, 1, "a %1");
         message << std::string(count, 'x');
     },
     8192, false},
    {"many parameters",
     [](ZBase::Message& message, std::size_t count) {
         std::string document = "<message><domain>Server</domain><template>%1</template>";
         for (std::size_t i = 0; i != count; ++i) document += "<parameter>p</parameter>";
         ReadXml(document + "</message>", message);
     },
     64, false},
    {"a text in many languages",
     [](ZBase::Message& message, std::size_t count) {
         message.SetDomainAndID(300, 1);
         for (std::size_t i = 0; i != count; ++i)
             message.SetLocalizedText(static_cast<unsigned short>(i + 1), "t");
     },
     64, false},
    {"a list",
     [](ZBase::Message& message, std::size_t count) {
         ReadXml(NestedDocument(count, "same_level_message"), message);
     },
     100, true},
    {"a chain of causes",
     [](ZBase::Message& message, std::size_t count) {
         ReadXml(NestedDocument(count, "lower_level_message"), message);
     },
     100, true},
    {"causes with lists",
     [](ZBase::Message& message, std::size_t count) {
         std::string document = "<message>";
         for (std::size_t i = 0; i < count / 2; ++i)
             document += "<lower_level_message><id>1</id></lower_level_message><same_level_message>";
         for (std::size_t i = 0; i < count / 2; ++i) document += "<id>7</id></same_level_message>";
         ReadXml(document + "</message>", message);
     },
     100, true},
};

}  // namespace test
