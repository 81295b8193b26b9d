#include "Commands.h"
#include "Console.h"
#include "MessageDocument.h"
#include "RecordView.h"

#include <nlohmann/json.hpp>

namespace {

using ZBase::Message;

std::string TextOf(const Message& message, unsigned short language) {
    ZBase::SimpleMessageLocalizer localizer;
    std::string text = message.Localize(localizer, language).c_str();
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

const char* NameOf(ZBase::EMessageRelation relation) {
    if (relation == ZBase::EMessageRelation::eLowerLevel) return "lower_level";
    return relation == ZBase::EMessageRelation::eSameLevel ? "same_level" : "root";
}

// Flat, since nesting of any depth is more than many programs read.
nlohmann::ordered_json ToJson(const ZBase::MessageVisit& visit, const MessageRequest& request) {
    const Message& message = *visit.message;
    nlohmann::ordered_json record;
    record["number"] = visit.number;
    record["relation"] = NameOf(visit.relation);
    const bool isRoot = visit.relation == ZBase::EMessageRelation::eRoot;
    record["parent"] = isRoot ? nlohmann::ordered_json() : nlohmann::ordered_json(visit.parent);
    record["level"] = visit.level;
    record["domain"] = message.GetDomain();
    record["domain_name"] = ZBase::ToString(message.GetDomain());
    record["id"] = message.GetID();
    record["message"] = TextOf(message, request.language);
    const char* textTemplate = message.GetTemplate();
    record["template"] =
        textTemplate == nullptr ? nlohmann::ordered_json() : nlohmann::ordered_json(textTemplate);
    record["parameters"] = nlohmann::ordered_json::array();
    for (const char* parameter : ZBase::MessageParameters(message)) record["parameters"].push_back(parameter);
    // Each language is there once, so none is looked for.
    nlohmann::ordered_json::object_t texts;
    for (const LocalizedText& text : LocalizedTexts(message))
        texts.Container::emplace_back(Hex(text.language, 1), text.text);
    record["texts"] = std::move(texts);
    return record;
}

bool IsEmpty(const Message& message) {
    return message.GetDomain() == 0 && message.GetID() == 0 && message.GetTemplate() == nullptr &&
           message.GetParameterCount() == 0 && LocalizedTexts(message).empty() &&
           message.GetLowerLevelMessageOrNULL() == nullptr && message.GetSameLevelMessageOrNULL() == nullptr;
}

void Show(const Message& message, const MessageRequest& request) {
    if (request.xml) {
        Print(ToDocument(message));
    } else if (request.json) {
        Print("[");
        for (const ZBase::MessageVisit& visit : ZBase::MessageWalk(message)) {
            const auto replace = nlohmann::ordered_json::error_handler_t::replace;
            Print((visit.number == 0 ? "\n" : ",\n") + ToJson(visit, request).dump(-1, ' ', false, replace));
        }
        Print("\n]\n");
    } else {
        Print(ZBase::FormatTree(message, {.language = request.language,
                                          .parameters = request.parameters,
                                          .texts = request.texts,
                                          .colour = IsColoured()})
                  .c_str());
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
