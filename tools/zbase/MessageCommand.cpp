#include "Commands.h"
#include "tools/zbase/record/MessageDocument.h"
#include "tools/zbase/record/RecordView.h"
#include "tools/zbase/terminal/Console.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>

namespace {

using ZBase::Message;

struct MessageRequest {
    std::string file = "-";
    unsigned short language = 0;
    bool parameters = false;
    bool texts = false;
    bool xml = false;
    bool json = false;
    std::size_t depth = 10'000;                    // levels of the document at most
    std::uint64_t size = std::uint64_t{64} << 20;  // bytes at most
};

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

// Flat, since many programs can't read any depth of nesting.
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
    // Each language occurs once, so no search is needed.
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

// Of a bad or truncated document shows what had arrived, and then the failure.
int ReadAndShow(const MessageRequest& request) {
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

}  // namespace

void AddMessageCommand(Command& zbase) {
    const auto request = std::make_shared<MessageRequest>();
    Command message = zbase.AddCommand("message", "Show an XML document of a message as a tree");
    message.AddOption("FILE", request->file, "The document; - is the standard input");
    message.AddOption("-l,--language", request->language, "Windows language id of the texts, such as 0x409");
    message.AddFlag("-p,--parameters", request->parameters, "Show the parameters of each message");
    message.AddFlag("-t,--texts", request->texts, "Show the stored texts of all languages");
    message.AddOption("--depth", request->depth, "Levels of the document at most");
    message.AddOption("--size", request->size, "Bytes of the document at most, such as 512MB").Size();
    const Option xml = message.AddFlag("--xml", request->xml, "Write the message as XML");
    message.AddFlag("--json", request->json, "Write one JSON object for each message").Excludes(xml);
    message.Runs([request] { return ReadAndShow(*request); });
}
