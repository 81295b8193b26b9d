#include "tests/support/MessageProgram.h"

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageCursorProgram.h"
#include "tests/support/MessageTrees.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace test {
namespace {

using ZBase::Message;

bool SaysText(const char* text, const ModelRecord* record) {
    return text == nullptr ? record == nullptr : record != nullptr && record->text == text;
}

std::string FindDifference(const Message& real, const ModelMessage& model) {
    if (const char* flaw = FindFlaw(&real)) return flaw;
    if (ModelMessage::Read(&real) != model)
        return "bytes say " + ModelMessage::Read(&real).ToText() + "\nnot       " + model.ToText();
    if (real.IsEmpty() != model.IsEmpty()) return "IsEmpty";
    const ModelRecord* header = model.FirstOrNull(1);
    if (real.GetDomain() != (header == nullptr ? 0 : header->domain)) return "GetDomain";
    if (real.GetID() != (header == nullptr ? 0 : header->id)) return "GetID";
    if (real.GetErrorCode() != static_cast<unsigned int>(real.GetID())) return "GetErrorCode";
    if (!SaysText(real.GetTemplate(), model.FirstOrNull(2))) return "GetTemplate";
    for (unsigned short language = 0; language != 3; ++language)
        if (!SaysText(real.GetLocalizedText(language), model.LocalizedOrNull(language)))
            return "GetLocalizedText";
    const std::vector<std::string> parameters = model.Parameters();
    if (real.GetParameterCount() != parameters.size()) return "GetParameterCount";
    for (unsigned int i = 0; i != parameters.size(); ++i)
        if (real.GetParameter(i) != parameters[i]) return "GetParameter";
    if (real.GetParameter(static_cast<unsigned int>(parameters.size())) != nullptr)
        return "GetParameter past end";
    // Without one it would keep the text of the tree.
    const ModelRecord* const wide = model.FirstOrNull(15);
    if (wide != nullptr && !std::equal(wide->wide.begin(), wide->wide.end() + 1, real.GetMessage()))
        return "GetMessage";
    if ((real.GetLowerLevelMessageOrNULL() == nullptr) != model.FirstOf(5).isNone) return "lower level";
    if ((real.GetSameLevelMessageOrNULL() == nullptr) != model.FirstOf(4).isNone) return "same level";
    return {};
}

// What it was called with.
class TellingLocalizer final : public Message::Localizer {
public:
    ZBase::ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                                     const char* textTemplate, const char* const* parameters) override {
        std::string told = std::to_string(language) + "/" + std::to_string(domain) + "/" +
                           std::to_string(id) + "/" + (textTemplate == nullptr ? "none" : textTemplate);
        for (; *parameters != nullptr; ++parameters) told += std::string("/") + *parameters;
        return ZBase::ReturnString(told.c_str());
    }
};

std::string Localize(const Message& real, const ModelMessage& model, unsigned short language) {
    TellingLocalizer localizer;
    const ModelRecord* const header = model.FirstOrNull(1);
    const ModelRecord* const textTemplate = model.FirstOrNull(2);
    std::string expected = std::to_string(language) + "/" +
                           std::to_string(header == nullptr ? 0 : header->domain) + "/" +
                           std::to_string(header == nullptr ? 0 : header->id) + "/" +
                           (textTemplate == nullptr ? "none" : textTemplate->text);
    for (const std::string& parameter : model.Parameters()) expected += "/" + parameter;
    if (const ModelRecord* const stored = model.LocalizedOrNull(language)) expected = stored->text;
    return real.Localize(localizer, language).c_str() == expected ? "" : "Localize";
}

// Trees are equal if all is that DescribeTree tells.
std::string Compare(const Message& one, const Message& other) {
    return (one == other) == (DescribeTree(one) == DescribeTree(other)) ? "" : "operator==";
}

// Copies and moves into and out of messages of the usual size.
std::string CopyAndMove(Choices& choices, const Specimen& one) {
    const Message copy(*one.holder);
    ModelMessage model;
    model.CopyFrom(one.model, {0});
    std::string difference = FindDifference(copy, model);
    Message first(copy);
    Message second(std::move(first));
    if (difference.empty()) difference = FindDifference(second, model);
    Message third(7, 8, choices.Flag() ? "old" : nullptr);
    third = std::move(second);
    if (difference.empty()) difference = FindDifference(third, model);
    if (difference.empty() && !(first.IsEmpty() && second.IsEmpty())) return "what is left of a move";
    return difference.empty() ? Compare(copy, third) : difference;
}

// The ways to make a message, on its own and in memory of the caller's.
std::string Make(Choices& choices, Specimen& other) {
    const std::string text = choices.Text();
    const auto domain = choices.Short();
    const int id = static_cast<int>(choices.Word());
    const char* const textOrNull = choices.Below(4) != 0 ? text.c_str() : nullptr;
    const std::uint32_t size = Message::MIN_SIZE + choices.Below(200);
    const auto expected = [&](std::uint32_t of, bool isCopy) {
        ModelMessage model(of);
        if (isCopy) {
            model.CopyFrom(other.model, {0});
            return model;
        }
        model.SetDomainAndID(domain, id);
        if (textOrNull != nullptr) model.SetTemplate(&text);
        return model;
    };
    const Message empty;
    if (std::string difference = FindDifference(empty, ModelMessage()); !difference.empty())
        return difference;
    const Message made(domain, id, textOrNull);
    if (std::string difference = FindDifference(made, expected(100, false)); !difference.empty())
        return difference;

    const std::unique_ptr<unsigned char[]> memory(new unsigned char[3 * size]);
    const bool isCopy = choices.Flag();
    const ModelMessage model = expected(size, isCopy);
    {
        const Message::PlacementPtr placed =
            isCopy ? Message::PlacementPtr(memory.get(), size, other.Real())
                   : Message::PlacementPtr(memory.get(), size, domain, id, textOrNull);
        if (placed.IsNull() || placed.Get() != placed.operator->()) return "PlacementPtr";
        if (std::string difference = FindDifference(*placed, model); !difference.empty()) return difference;
    }
    Message::PlacementArrayPtr all =
        isCopy ? Message::PlacementArrayPtr(memory.get(), 3 * size, size, other.Real())
               : Message::PlacementArrayPtr(memory.get(), 3 * size, size, domain, id, textOrNull);
    for (unsigned int i = 0; i != 3; ++i)
        if (std::string difference = FindDifference(all[i], model); !difference.empty()) return difference;
    return Message::PlacementArrayPtr(memory.get(), size, size).IsNull() ? "" : "PlacementArrayPtr of one";
}

std::string RunOperation(unsigned int operation, Choices& choices, Specimen& one, Specimen& other) {
    switch (operation) {
        case 10:
            return CopyAndMove(choices, one);
        case 11:
            return ReadWithCursor(choices, one, other);
        case 12:
        case 13:
            return WriteWithCursor(choices, one, other);
        case 14:
            return Localize(one.Real(), one.model, static_cast<unsigned short>(choices.Below(4)));
        case 15:
            return Compare(one.Real(), other.Real());
        case 16:
            return Make(choices, other);
        default:
            if (operation < kRewritings) {
                Rewrite(operation, choices, one.Real(), one.model, other);
            } else {
                Edit(choices, one.Real(), one.model);
            }
            return {};
    }
}

}  // namespace

std::string RunMessageProgram(const std::uint8_t* bytes, std::size_t size) {
    Choices choices(bytes, size);
    Specimen specimens[] = {{100, 0}, {100, 1}, {16, 0}, {64, 1}, {301, 0}, {100, 0}};
    while (!choices.IsOver()) {
        const unsigned int operation = choices.Below(27);
        Specimen& one = specimens[choices.Below(6)];
        Specimen& other = specimens[choices.Below(6)];
        std::string difference = RunOperation(operation, choices, one, other);
        if (difference.empty()) difference = FindDifference(one.Real(), one.model);
        if (difference.empty()) difference = FindDifference(other.Real(), other.model);
        if (!difference.empty()) return "operation " + std::to_string(operation) + ": " + difference;
        if (TotalCapacity(one.model) < 6000) continue;
        one.Real().Clear();
        one.model.Clear();
    }
    return {};
}

}  // namespace test
