#include "tests/support/MessageProgram.h"

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>

#include <memory>
#include <vector>

namespace test {
namespace {

using ZBase::ConstMessageCursor;
using ZBase::CursorOffset;
using ZBase::Message;
using ZBase::MessageCursor;

class Choices {
public:
    Choices(const std::uint8_t* bytes, std::size_t size) : mpNext(bytes), mpEnd(bytes + size) {}
    bool IsOver() const { return mpNext == mpEnd; }
    unsigned int Below(unsigned int limit) { return IsOver() ? 0 : *mpNext++ % limit; }
    bool Flag() { return Below(2) == 1; }
    unsigned short Short() { return static_cast<unsigned short>(Below(256) << 8 | Below(256)); }
    std::uint32_t Word() { return static_cast<std::uint32_t>(Short()) << 16 | Short(); }
    std::string Text() {
        const unsigned int kind = Below(8);
        const unsigned int length = kind == 0 ? 0 : kind < 6 ? Below(16) : Below(140);
        std::string text;
        for (unsigned int i = 0; i != length; ++i) text += static_cast<char>('a' + (length + i) % 26);
        return text;
    }

private:
    const std::uint8_t* mpNext;
    const std::uint8_t* mpEnd;
};

struct Specimen {
    Specimen(std::uint32_t size, std::size_t shift)
        : memory(new unsigned char[size + shift]), holder(memory.get() + shift, size), model(size) {}

    Message& Real() { return *holder; }

    std::unique_ptr<unsigned char[]> memory;  // to the byte, so that a sanitizer sees what runs over
    Message::PlacementPtr holder;
    ModelMessage model;
};

const char* OrNull(const std::string* text) {
    return text == nullptr ? nullptr : text->c_str();
}

std::u16string Widen(const std::string& text) {
    return std::u16string(text.begin(), text.end());
}

void SetWide(Message& message, const std::u16string& text) {
    const std::vector<unsigned short> units(text.begin(), text.end() + 1);
    message.SetMessage(units.data());
}

// One operation that adds to a message or changes it in place.
void Edit(Choices& choices, Message& real, ModelMessage& model) {
    const unsigned int operation = choices.Below(9);
    const std::string text = choices.Text();
    const std::string* const textOrNull = choices.Below(4) == 0 ? nullptr : &text;
    const auto language = static_cast<unsigned short>(choices.Below(3));
    switch (operation) {
        case 0: {
            const unsigned short domain = choices.Short();
            const int id = static_cast<int>(choices.Word());
            real.SetDomainAndID(domain, id);
            model.SetDomainAndID(domain, id);
            break;
        }
        case 1:
            real.SetTemplate(OrNull(textOrNull));
            model.SetTemplate(textOrNull);
            break;
        case 2:
            real.SetLocalizedText(language, OrNull(textOrNull));
            model.SetLocalizedText(language, textOrNull);
            break;
        case 3:
            SetWide(real, Widen(text));
            model.SetMessage(Widen(text), text);
            break;
        case 4:
            real << OrNull(textOrNull);
            model.AddParameter(textOrNull == nullptr ? "" : text);
            break;
        case 5: {
            const bool value = choices.Flag();
            real << value;
            model.AddParameter(value ? "true" : "false");
            break;
        }
        case 6: {
            const std::uint32_t value = choices.Word();
            if (language == 0) {
                real << static_cast<int>(value);
            } else {
                real << static_cast<unsigned long>(value);
            }
            model.AddNumber(value, language == 0);
            break;
        }
        case 7:
            real << Message::Hex << Message::WideHex;
            model.SetNumberFormat(16, 8);
            break;
        default:
            real << (language == 0 ? Message::Dec : Message::WideWideHex);
            model.SetNumberFormat(language == 0 ? 10 : 16, language == 0 ? 0 : 16);
            break;
    }
}

bool IsAt(CursorOffset offset, unsigned int lower, unsigned int same) {
    return offset.lower_level_offset == lower && offset.same_level_offset == same;
}

std::string ReadWithCursor(Choices& choices, Specimen& specimen) {
    struct Level {
        const ModelMessage* message;  // null for one that does not exist
        ModelMessage::Links links;
        unsigned int lower;
        unsigned int same;
        bool lowerVisited = false;
        bool sameVisited = false;
    };
    std::vector<Level> levels{{&specimen.model, specimen.model.FindLinks(), 0, 0}};
    ConstMessageCursor cursor(specimen.Real());
    for (unsigned int steps = choices.Below(32); steps != 0; --steps) {
        const unsigned int step = choices.Below(5);
        if (step == 0) {
            const bool moved = levels.size() > 1;
            if (cursor.GoToParent() != moved) return "reading GoToParent";
            if (moved) levels.pop_back();
        } else {
            const bool isLower = step < 3;
            const bool create = choices.Below(8) == 0;
            const ModelMessage* from = levels.back().message;
            const ModelMessage::Place link = isLower ? levels.back().links.lower : levels.back().links.same;
            const bool moved =
                isLower ? cursor.GoToLowerLevelMessage(create) : cursor.GoToSameLevelMessage(create);
            if (moved != (create || !link.isNone)) return "reading step";
            if (moved) {
                (isLower ? levels.back().lowerVisited : levels.back().sameVisited) = true;
                const ModelMessage* to = link.isNone ? nullptr : &from->At(link).nested[0];
                levels.push_back({to, to == nullptr ? ModelMessage::Links{} : to->FindLinks(),
                                  levels.back().lower + isLower, levels.back().same + !isLower});
            }
        }
        const Level& level = levels.back();
        if (!IsAt(cursor.GetCurrentOffset(), level.lower, level.same)) return "reading offset";
        if (cursor.LowerLevelMessageIsUnvisited() != (!level.links.lower.isNone && !level.lowerVisited))
            return "reading lower unvisited";
        if (cursor.SameLevelMessageIsUnvisited() != (!level.links.same.isNone && !level.sameVisited))
            return "reading same unvisited";
        const ModelMessage seen = ModelMessage::Read(&cursor.GetCurrentMessage());
        if (seen != (level.message == nullptr ? ModelMessage(16) : *level.message)) return "reading message";
    }
    return {};
}

std::string WriteWithCursor(Choices& choices, Specimen& specimen) {
    struct Level {
        ModelMessage message{16};
        ModelMessage::Links links;
        unsigned int lower;
        unsigned int same;
        bool isLower;
    };
    std::vector<Level> levels;
    ModelMessage::Links rootLinks = specimen.model.FindLinks();
    MessageCursor cursor(specimen.Real());
    const auto goToParent = [&] {
        if (cursor.GoToParent() != !levels.empty()) return false;
        if (levels.empty()) return true;
        const Level level = levels.back();
        levels.pop_back();
        ModelMessage& parent = levels.empty() ? specimen.model : levels.back().message;
        parent.NestCopy(level.message, level.isLower ? 5 : 4);
        return true;
    };
    for (unsigned int steps = choices.Below(24); steps != 0; --steps) {
        ModelMessage& current = levels.empty() ? specimen.model : levels.back().message;
        ModelMessage::Links& links = levels.empty() ? rootLinks : levels.back().links;
        const unsigned int step = choices.Below(8);
        if (step == 0) {
            if (!goToParent()) return "writing GoToParent";
        } else if (step < 4) {
            Edit(choices, cursor.GetCurrentMessage(), current);
        } else {
            const bool isLower = step < 6;
            const bool create = choices.Below(4) == 0;
            ModelMessage::Place& link = isLower ? links.lower : links.same;
            const bool moved =
                isLower ? cursor.GoToLowerLevelMessage(create) : cursor.GoToSameLevelMessage(create);
            if (moved != (create || !link.isNone)) return "writing step";
            if (moved) {
                Level level{ModelMessage(16), {}, 0, 0, isLower};
                level.lower = (levels.empty() ? 0 : levels.back().lower) + isLower;
                level.same = (levels.empty() ? 0 : levels.back().same) + !isLower;
                if (!link.isNone) {
                    ModelRecord& record = current.At(link);
                    level.links = level.message.CopyFrom(record.nested[0], {0});
                    const std::uint32_t length = record.length;
                    record = ModelRecord{};
                    record.length = length;
                    link = {};
                }
                levels.push_back(level);
            }
        }
        const ModelMessage& now = levels.empty() ? specimen.model : levels.back().message;
        const ModelMessage::Links& nowLinks = levels.empty() ? rootLinks : levels.back().links;
        if (ModelMessage::Read(&cursor.GetCurrentMessage()) != now) return "writing message";
        if (!IsAt(cursor.GetCurrentOffset(), levels.empty() ? 0 : levels.back().lower,
                  levels.empty() ? 0 : levels.back().same))
            return "writing offset";
        if (cursor.LowerLevelMessageIsUnvisited() != !nowLinks.lower.isNone) return "writing lower unvisited";
        if (cursor.SameLevelMessageIsUnvisited() != !nowLinks.same.isNone) return "writing same unvisited";
    }
    while (!levels.empty())
        if (!goToParent()) return "writing way back";
    return {};
}

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
    if (!SaysText(real.GetTemplate(), model.FirstOrNull(2))) return "GetTemplate";
    for (unsigned short language = 0; language != 3; ++language)
        if (!SaysText(real.GetLocalizedText(language), model.LocalizedOrNull(language)))
            return "GetLocalizedText";
    const std::vector<std::string> parameters = model.Parameters();
    for (unsigned int i = 0; i != parameters.size(); ++i)
        if (real.GetParameter(i) != parameters[i]) return "GetParameter";
    if (real.GetParameter(static_cast<unsigned int>(parameters.size())) != nullptr)
        return "GetParameter past end";
    if ((real.GetLowerLevelMessageOrNULL() == nullptr) != model.FirstOf(5).isNone) return "lower level";
    if ((real.GetSameLevelMessageOrNULL() == nullptr) != model.FirstOf(4).isNone) return "same level";
    return {};
}

std::string RunOperation(unsigned int operation, Choices& choices, Specimen& one, Specimen& other) {
    const std::string text = choices.Text();
    const std::string* const textOrNull = choices.Below(4) == 0 ? nullptr : &text;
    switch (operation) {
        case 0:
            one.Real().Clear();
            one.model.Clear();
            return {};
        case 1:
            one.Real() = other.Real();
            one.model.Assign(other.model);
            return {};
        case 2:
        case 3:
            if (!one.Real().Swap(other.Real())) return "Swap";
            one.model.Swap(other.model);
            return {};
        case 4:
        case 5:
            one.Real().WrapBy(300, 43, OrNull(textOrNull));
            one.model.Nest(5, 300, 43, textOrNull);
            return {};
        case 6:
        case 7:
            one.Real().PrependBy(10, 2, OrNull(textOrNull));
            one.model.Nest(4, 10, 2, textOrNull);
            return {};
        case 8:
        case 9: {
            const ModelMessage copy = other.model;
            ModelMessage compact;
            compact.CopyFrom(copy, {0});
            one.Real().PrependBy(other.Real());
            one.model.Prepend(&one == &other ? compact : copy);
            return {};
        }
        case 10: {
            const Message copy(one.Real());
            ModelMessage model;
            model.CopyFrom(one.model, {0});
            return FindDifference(copy, model);
        }
        case 11:
            return ReadWithCursor(choices, one);
        case 12:
            return WriteWithCursor(choices, one);
        default:
            Edit(choices, one.Real(), one.model);
            return {};
    }
}

std::size_t TotalCapacity(const ModelMessage& model) {
    std::size_t total = 0;
    for (const ModelBlock& block : model.blocks) total += block.capacity;
    return total;
}

}  // namespace

std::string RunMessageProgram(const std::uint8_t* bytes, std::size_t size) {
    Choices choices(bytes, size);
    Specimen specimens[] = {{100, 0}, {100, 1}, {16, 0}, {64, 1}, {301, 0}, {100, 0}};
    while (!choices.IsOver()) {
        const unsigned int operation = choices.Below(24);
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
