#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Writer.h>

#include <sstream>
#include <utility>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"
#include "tests/growth/Trees.h"

// What is done with a message as a whole, over all kinds of messages.

namespace test {

namespace {

using ZBase::Message;

constexpr const char* kTabs =
    "a text at level d begins with d tabs, so a chain of n causes has n^2 / 2 of them";

/// What is done with a message, and what it may take where that is more than the proportion.
struct Use {
    const char* name;
    std::vector<std::string_view> covers;
    void (*run)(Message& message);
    bool isApart = false;  // from other uses, as it writes
    const char* reason = nullptr;
    std::string_view of = {};  // the kinds of messages that the reason holds for; empty: all trees
};

void WalkConst(Message& message) {
    ZBase::ConstMessageCursor cursor(message);
    for (bool isOn = true; isOn;) {
        if (cursor.LowerLevelMessageIsUnvisited())
            cursor.GoToLowerLevelMessage(false);
        else if (cursor.SameLevelMessageIsUnvisited())
            cursor.GoToSameLevelMessage(false);
        else
            isOn = cursor.GoToParent();
    }
}

void WalkAndTouch(Message& message) {
    ZBase::MessageCursor cursor(message);
    for (bool isOn = true; isOn;) {
        if (cursor.LowerLevelMessageIsUnvisited())
            cursor.GoToLowerLevelMessage(false);
        else if (cursor.SameLevelMessageIsUnvisited())
            cursor.GoToSameLevelMessage(false);
        else
            isOn = cursor.GoToParent();
    }
}

void ReadParameters(Message& message) {
    std::size_t sum = 0;
    for (const char* parameter : ZBase::MessageParameters(message)) sum += *parameter == 'p' ? 1 : 0;
    for (auto one = ZBase::MessageParameters(message).begin(); *one != nullptr; one++) ++sum;
    message.GetParameterCount();
}

void VisitAll(Message& message) {
    std::size_t sum = 0;
    for (const ZBase::MessageVisit& visit : ZBase::MessageWalk(message)) sum += visit.level;
}

void CompareWithACopy(Message& message) {
    const Message copy(message);
    static_cast<void>(copy == message);
}

void CopyAndAssign(Message& message) {
    Message copy(message);
    Message other;
    other = copy;
    other.Swap(copy);
    Message moved(std::move(copy));
    other = std::move(moved);
}

void Place(Message& message) {
    unsigned char memory[256];
    const Message::PlacementPtr one(memory, 64, message);
    const Message::PlacementArrayPtr some(memory + 64, 128, 32, message);
    Message copy(message);
    one->Swap(copy);
}

void WriteXml(Message& message) {
    std::string document;
    ZBase::SerializeToXML(message, *ZLiteXML::CreateStringWriter(document, {.replace = true}));
}

void WriteAndReadXml(Message& message) {
    std::string document;
    ZBase::SerializeToXML(message,
                          *ZLiteXML::CreateStringWriter(document, {.indentation = 4, .replace = true}));
    Message other;
    ReadXml(document, other);
}

void WrapAndPrepend(Message& message) {
    Message copy(message);
    copy.WrapBy(300, 8, "outer");
    copy.PrependBy(300, 9, "in front");
    copy.PrependBy(message);
    copy.PrependBy(copy);
}

const Use kUses[] = {
    {"copy",
     {"ZBase::Message::Message", "ZBase::Message::operator=", "ZBase::Message::Swap",
      "ZBase::Message::~Message"},
     CopyAndAssign},
    {"placement", {"ZBase::Message::PlacementPtr::*", "ZBase::Message::PlacementArrayPtr::*"}, Place},
    {"equality", {"ZBase::operator==(ZBase::Message const&, ZBase::Message const&)"}, CompareWithACopy},
    {"wraps", {"ZBase::Message::WrapBy", "ZBase::Message::PrependBy"}, WrapAndPrepend},
    {"MessageWalk", {"ZBase::MessageWalk::*"}, VisitAll},
    {"MessageParameters",
     {"ZBase::MessageParameters::*", "ZBase::Message::GetParameterCount"},
     ReadParameters},
    {"ConstMessageCursor", {"ZBase::ConstMessageCursor::*"}, WalkConst},
    {"MessageCursor",
     {"ZBase::MessageCursor::*"},
     WalkAndTouch,
     true,
     "a step copies all that is nested in the message, as the header says"},
    {"FormatMessage",
     {"ZBase::FormatMessage(ZBase::Message const&, unsigned short)"},
     [](Message& message) { ZBase::FormatMessage(message, 0); },
     false,
     kTabs,
     "a chain of causes"},
    {"FormatMessage of a constant message",
     {"ZBase::FormatMessage(ZBase::Message const&, unsigned short, ZBase::Message::Localizer&)",
      "ZBase::SimpleMessageLocalizer::*"},
     [](Message& message) {
         ZBase::SimpleMessageLocalizer localizer;
         ZBase::FormatMessage(std::as_const(message), 0x409, localizer);
     },
     false,
     kTabs,
     "a chain of causes"},
    {"FormatMessage that writes",
     {"ZBase::FormatMessage(ZBase::Message&, unsigned short, ZBase::Message::Localizer&)"},
     [](Message& message) {
         ZBase::SimpleMessageLocalizer localizer;
         ZBase::FormatMessage(message, 0x409, localizer);
     },
     true,
     "it walks by a MessageCursor, as the header says"},
    {"FormatMessage into another",
     {"ZBase::FormatMessage(ZBase::Message const&, ZBase::Message&, unsigned short, "
      "ZBase::Message::Localizer&)"},
     [](Message& message) {
         ZBase::SimpleMessageLocalizer localizer;
         Message localized;
         ZBase::FormatMessage(std::as_const(message), localized, 0x409, localizer);
     },
     false,
     "it fills the other by a MessageCursor, as the header says",
     "a chain of causes"},
    {"FormatTree",
     {"ZBase::FormatTree"},
     [](Message& message) {
         ZBase::FormatTree(message);
         ZBase::FormatTree(message, {.parameters = true, .texts = true, .colour = true});
     }},
    {"GetMessage",
     {"ZBase::Message::GetMessage"},
     [](Message& message) {
         const Message copy(message);
         copy.GetMessage();
     },
     false,
     kTabs,
     "a chain of causes"},
    {"Localize",
     {"ZBase::Message::Localize"},
     [](Message& message) {
         ZBase::SimpleMessageLocalizer localizer;
         message.Localize(localizer, 0x409);
     }},
    {"a stream",
     {"ZBase::operator<<(std::basic_ostream<char, std::char_traits<char> >&, ZBase::Message const&)"},
     [](Message& message) {
         std::ostringstream stream;
         stream << message;
     },
     false,
     kTabs,
     "a chain of causes"},
    {"SerializeToXML", {"ZBase::SerializeToXML"}, WriteXml},
    {"XML and back", {"ZBase::GetSerializerFromXML"}, WriteAndReadXml},
    {"what is in it",
     {"ZBase::Message::GetTemplate", "ZBase::Message::GetLocalizedText", "ZBase::Message::IsEmpty",
      "ZBase::Message::GetLowerLevelMessageOrNULL", "ZBase::Message::GetSameLevelMessageOrNULL"},
     [](Message& message) {
         message.GetTemplate();
         message.GetLocalizedText(0xFFFF);
         message.GetLowerLevelMessageOrNULL();
         message.GetSameLevelMessageOrNULL();
         static_cast<void>(message.IsEmpty());
     }},
    {"an exception",
     {"ZBase::MessageOfCurrentException"},
     [](Message& message) {
         try {
             throw ZBase::ExceptionImpl<ZBase::BufferException>(message);
         } catch (...) {
             ZBase::MessageOfCurrentException();
         }
     }},
};

Row UseOf(const Use& use, const MessageKind& kind) {
    Row row{std::string(use.name) + " of " + kind.name, use.covers, kind.length,
            [&use, &kind](std::size_t length) {
                const auto message = std::make_shared<Message>();
                kind.fill(*message, length);
                return Job([&use, message] {
                    // What writes leaves the message larger.
                    if (!use.isApart) return use.run(*message);
                    Message copy(*message);
                    use.run(copy);
                });
            }};
    const bool isExcused = use.of.empty() ? kind.isTree : use.of == kind.name;
    if (use.reason != nullptr && isExcused) return std::move(row).May(2, use.reason);
    return row;
}

}  // namespace

std::vector<Row> MessageRows() {
    std::vector<Row> rows;
    for (const Use& use : kUses) {
        for (const MessageKind& kind : kMessages) rows.push_back(UseOf(use, kind));
    }
    return rows;
}

}  // namespace test
