#include "Commands.h"
#include "Console.h"
#include "MessageDocument.h"
#include "RecordView.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

using ZBase::Message;

// Deeper levels are not moved further to the right, or a deep tree would be nothing but spaces.
constexpr unsigned int kDeepestIndentation = 32;

/// A message of a tree as its walk meets it, depth first.
struct Visit {
    const Message& message;
    std::size_t number;  // from 0 on
    long parent;         // the number of the message that this one is below or behind; -1: none
    const char* relation;
    unsigned int level;  // lower-level steps from the root
};

template <class Visitor>
void Walk(const Message& root, Visitor visit) {
    ZBase::ConstMessageCursor cursor(root);
    std::vector<std::size_t> path{0};
    std::size_t count = 0;
    unsigned int level = 0;
    std::vector<bool> wasLower{false};
    const char* relation = "root";
    for (;;) {
        const long parent = path.size() == 1 ? -1 : static_cast<long>(path[path.size() - 2]);
        visit(Visit{cursor.GetCurrentMessage(), count++, parent, relation, level});
        bool lower = cursor.LowerLevelMessageIsUnvisited();
        if (!lower) {
            while (!cursor.SameLevelMessageIsUnvisited()) {
                if (!cursor.GoToParent()) return;
                if (wasLower.back()) --level;
                wasLower.pop_back();
                path.pop_back();
            }
        }
        if (!(lower ? cursor.GoToLowerLevelMessage(false) : cursor.GoToSameLevelMessage(false)))
            throw std::bad_alloc();
        if (lower) ++level;
        relation = lower ? "lower_level" : "same_level";
        wasLower.push_back(lower);
        path.push_back(count);
    }
}

// A text on one line, and harmless to a terminal.
std::string OneLine(const char* text) {
    std::string line;
    for (; *text != 0; ++text) {
        const auto octet = static_cast<unsigned char>(*text);
        const auto next = static_cast<unsigned char>(text[1]);
        if (octet == '\n') {
            line += "\\n";
        } else if (octet == '\r') {
            line += "\\r";
        } else if (octet < 0x20 || octet == 0x7F) {
            line += "\\x" + Hex(octet, 2);
        } else if (octet == 0xC2 && next >= 0x80 && next < 0xA0) {
            line += "\\x" + Hex(next, 2);
            ++text;
        } else {
            line += *text;
        }
    }
    return line;
}

std::string TextOf(const Message& message, unsigned short language) {
    ZBase::SimpleMessageLocalizer localizer;
    std::string text = message.Localize(localizer, language).c_str();
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

void PrintMessage(const Visit& visit, const MessageRequest& request) {
    const Message& message = visit.message;
    const std::string indent(std::size_t{2} * std::min(visit.level, kDeepestIndentation), ' ');
    Print(indent + Styled(ZBase::ToString(message.GetDomain()), "36") + " " +
          Styled(std::to_string(message.GetID()), "1") + "  " +
          OneLine(TextOf(message, request.language).c_str()) + "\n");
    if (request.parameters) {
        unsigned int number = 0;
        for (const char* parameter : Parameters(message))
            Print(indent + "    " + Styled("%" + std::to_string(++number), "33") + " " + OneLine(parameter) +
                  "\n");
    }
    if (!request.texts) return;
    for (const LocalizedText& text : LocalizedTexts(message))
        Print(indent + "    " + Styled(Hex(text.language, 4), "32") + " " + OneLine(text.text) + "\n");
}

// Flat, since nesting of any depth is more than many programs read.
nlohmann::ordered_json ToJson(const Visit& visit, const MessageRequest& request) {
    const Message& message = visit.message;
    nlohmann::ordered_json record;
    record["number"] = visit.number;
    record["relation"] = visit.relation;
    record["parent"] = visit.parent < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(visit.parent);
    record["level"] = visit.level;
    record["domain"] = message.GetDomain();
    record["domain_name"] = ZBase::ToString(message.GetDomain());
    record["id"] = message.GetID();
    record["message"] = TextOf(message, request.language);
    const char* textTemplate = message.GetTemplate();
    record["template"] =
        textTemplate == nullptr ? nlohmann::ordered_json() : nlohmann::ordered_json(textTemplate);
    record["parameters"] = nlohmann::ordered_json::array();
    for (const char* parameter : Parameters(message)) record["parameters"].push_back(parameter);
    // Each language is there once, so none is looked for.
    nlohmann::ordered_json::object_t texts;
    for (const LocalizedText& text : LocalizedTexts(message))
        texts.Container::emplace_back(Hex(text.language, 1), text.text);
    record["texts"] = std::move(texts);
    return record;
}

bool IsEmpty(const Message& message) {
    return message.GetDomain() == 0 && message.GetID() == 0 && message.GetTemplate() == nullptr &&
           Parameters(message).empty() && LocalizedTexts(message).empty() &&
           message.GetLowerLevelMessageOrNULL() == nullptr && message.GetSameLevelMessageOrNULL() == nullptr;
}

void Show(const Message& message, const MessageRequest& request) {
    if (request.xml) {
        Print(ToDocument(message));
    } else if (request.json) {
        Print("[");
        Walk(message, [&](const Visit& visit) {
            const auto replace = nlohmann::ordered_json::error_handler_t::replace;
            Print((visit.number == 0 ? "\n" : ",\n") + ToJson(visit, request).dump(-1, ' ', false, replace));
        });
        Print("\n]\n");
    } else {
        Walk(message, [&](const Visit& visit) { PrintMessage(visit, request); });
    }
}

}  // namespace

// Of a document that is bad or cut off what had arrived is shown, and then why it is not more.
int RunMessage(const MessageRequest& request) {
    Message message;
    try {
        ReadDocument(request.file, message, {.depth = request.depth, .size = request.size});
    } catch (const Failure&) {
        if (!IsEmpty(message)) Show(message, request);
        FinishOutput();
        throw;
    }
    Show(message, request);
    return 0;
}
