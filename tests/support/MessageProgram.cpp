#include "tests/support/MessageProgram.h"

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>

#include <algorithm>
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

    std::unique_ptr<unsigned char[]> memory;  // of the exact size, so that a sanitizer detects overruns
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

std::size_t TotalCapacity(const ModelMessage& model) {
    std::size_t total = 0;
    for (const ModelBlock& block : model.blocks) total += block.capacity;
    return total;
}

constexpr unsigned int kRewritings = 10;

// One operation that replaces or moves the whole content of a message. `other` may be the specimen of that
// message.
void Rewrite(unsigned int operation, Choices& choices, Message& real, ModelMessage& model, Specimen& other) {
    const std::string text = choices.Text();
    const std::string* const textOrNull = choices.Below(4) == 0 ? nullptr : &text;
    if (TotalCapacity(model) + TotalCapacity(other.model) > 12000) operation = 0;
    switch (operation) {
        case 0:
            real.Clear();
            model.Clear();
            break;
        case 1:
            real = other.Real();
            model.Assign(other.model);
            break;
        case 2:
        case 3:
            real.Swap(other.Real());
            if (&model != &other.model) model.Swap(other.model);
            break;
        case 4:
        case 5:
            real.WrapBy(300, 43, OrNull(textOrNull));
            model.Nest(5, 300, 43, textOrNull);
            break;
        case 6:
        case 7:
            real.PrependBy(10, 2, OrNull(textOrNull));
            model.Nest(4, 10, 2, textOrNull);
            break;
        default: {
            const ModelMessage copy = other.model;
            ModelMessage compact;
            compact.CopyFrom(copy, {0});
            real.PrependBy(other.Real());
            model.Prepend(&model == &other.model ? compact : copy);
            break;
        }
    }
}

// The offset of a nested record in its block, so that it can be found in other content.
struct Spot {
    std::size_t block = 0;
    std::uint32_t offset = 0;  // 0 is nowhere
    unsigned int tag = 0;
    std::uint32_t length = 0;
    bool operator==(const Spot&) const = default;
};

template <class Visit>
void VisitRecords(const ModelMessage& message, Visit visit) {
    for (std::size_t b = 0; b != message.blocks.size(); ++b) {
        std::uint32_t offset = 16;
        for (std::size_t r = 0; r != message.blocks[b].records.size(); ++r) {
            const ModelRecord& record = message.blocks[b].records[r];
            visit(ModelMessage::Place{b, r, false}, Spot{b, offset, record.tag, record.length});
            offset += record.length;
        }
    }
}

std::vector<Spot> ShapeOf(const ModelMessage& message) {
    std::vector<Spot> shape;
    VisitRecords(message, [&](ModelMessage::Place, const Spot& spot) { shape.push_back(spot); });
    return shape;
}

Spot SpotOf(const ModelMessage& message, const ModelMessage::Place& wanted) {
    Spot found;
    VisitRecords(message, [&](const ModelMessage::Place& place, const Spot& spot) {
        if (!wanted.isNone && wanted.block == place.block && wanted.record == place.record) found = spot;
    });
    return found;
}

ModelMessage::Place PlaceOf(const ModelMessage& message, const Spot& link) {
    ModelMessage::Place found;
    VisitRecords(message, [&](const ModelMessage::Place& place, const Spot& spot) {
        if (spot == link) found = place;
    });
    return found;
}

bool IsAmong(const std::vector<Spot>& spots, const Spot& wanted) {
    return std::find(spots.begin(), spots.end(), wanted) != spots.end();
}

// A cursor's state of a level that may be rewritten.
struct KnownLevel {
    std::vector<Spot> shape;  // after the cursor's last step
    Spot lower;
    Spot same;
    bool isLowerDropped = false;
    bool isSameDropped = false;

    KnownLevel(const ModelMessage& message, const ModelMessage::Links& links)
        : shape(ShapeOf(message)), lower(SpotOf(message, links.lower)), same(SpotOf(message, links.same)) {}
    explicit KnownLevel(const ModelMessage& message) : KnownLevel(message, message.FindLinks()) {}

    // Whether an earlier record is neither there nor dead there.
    bool MissesOne(const std::vector<Spot>& now) const {
        return std::any_of(shape.begin(), shape.end(), [&](const Spot& spot) {
            const Spot dead{spot.block, spot.offset, 0, spot.length};
            return !IsAmong(now, spot) && !IsAmong(now, dead);
        });
    }

    bool Refresh(const ModelMessage& message) {
        const std::vector<Spot> now = ShapeOf(message);
        const bool isRewritten = MissesOne(now);
        if (isRewritten) *this = KnownLevel(message);
        const ModelMessage::Links links = message.FindLinks();
        if (!isLowerDropped && !IsAmong(now, lower)) lower = SpotOf(message, links.lower);
        if (!isSameDropped && !IsAmong(now, same)) same = SpotOf(message, links.same);
        return isRewritten;
    }
};

// The way of a second cursor to one side of the root and back, in a step that creates nothing.
void WalkToOneSide(bool isLower, Message& real, ModelMessage& model) {
    MessageCursor cursor(real);
    if (isLower ? cursor.GoToLowerLevelMessage(false) : cursor.GoToSameLevelMessage(false))
        cursor.GoToParent();
    const ModelMessage::Links links = model.FindLinks();
    const ModelMessage::Place& place = isLower ? links.lower : links.same;
    if (place.isNone) return;
    ModelMessage level(16);
    ModelRecord& record = model.At(place);
    level.CopyFrom(record.nested[0], {0});
    const std::uint32_t length = record.length;
    record = ModelRecord{};
    record.length = length;
    model.NestCopy(level, isLower ? 5 : 4);
}

bool IsAt(CursorOffset offset, unsigned int lower, unsigned int same) {
    return offset.lower_level_offset == lower && offset.same_level_offset == same;
}

std::string ReadWithCursor(Choices& choices, Specimen& specimen, Specimen& other) {
    struct Level {
        const ModelMessage* message;  // null for one that does not exist
        ModelMessage::Links links;
        unsigned int lower;
        unsigned int same;
        bool lowerVisited = false;
        bool sameVisited = false;
    };
    std::vector<Level> levels{{&specimen.model, specimen.model.FindLinks(), 0, 0}};
    KnownLevel root(specimen.model);
    ConstMessageCursor cursor(specimen.Real());
    for (unsigned int steps = choices.Below(32); steps != 0; --steps) {
        const unsigned int step = choices.Below(6);
        if (step == 5) {
            if (levels.size() != 1) continue;
            const unsigned int operation = choices.Below(kRewritings + 6);
            if (operation < kRewritings) {
                Rewrite(operation, choices, specimen.Real(), specimen.model, other);
            } else if (operation < kRewritings + 4) {
                WalkToOneSide(choices.Flag(), specimen.Real(), specimen.model);
            } else {
                Edit(choices, specimen.Real(), specimen.model);
            }
            if (root.Refresh(specimen.model)) levels.back() = {&specimen.model, {}, 0, 0};
            levels.back().links = {PlaceOf(specimen.model, root.lower), PlaceOf(specimen.model, root.same)};
        } else if (step == 0) {
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

std::string WriteWithCursor(Choices& choices, Specimen& specimen, Specimen& other) {
    struct Level {
        ModelMessage message;
        KnownLevel known;
        unsigned int lower;
        unsigned int same;
        bool isLower;
    };
    std::vector<Level> levels;
    KnownLevel rootKnown(specimen.model);
    MessageCursor cursor(specimen.Real());
    const auto current = [&]() -> ModelMessage& {
        return levels.empty() ? specimen.model : levels.back().message;
    };
    const auto known = [&]() -> KnownLevel& {
        KnownLevel& level = levels.empty() ? rootKnown : levels.back().known;
        level.Refresh(current());
        return level;
    };
    const auto goToParent = [&] {
        if (cursor.GoToParent() != !levels.empty()) return false;
        if (levels.empty()) return true;
        const Level level = levels.back();
        levels.pop_back();
        KnownLevel& parent = known();
        if ((level.isLower ? parent.lower : parent.same) == Spot{})
            (level.isLower ? parent.isLowerDropped : parent.isSameDropped) = true;
        current().NestCopy(level.message, level.isLower ? 5 : 4);
        parent.shape = ShapeOf(current());
        return true;
    };
    const auto step = [&](bool isLower, bool create) {
        KnownLevel& from = known();
        Spot& link = isLower ? from.lower : from.same;
        const ModelMessage::Place place = PlaceOf(current(), link);
        const bool moved =
            isLower ? cursor.GoToLowerLevelMessage(create) : cursor.GoToSameLevelMessage(create);
        if (moved != (create || !place.isNone)) return false;
        if (!moved) return true;
        ModelMessage message(16);
        ModelMessage::Links links;
        if (!place.isNone) {
            ModelRecord& record = current().At(place);
            links = message.CopyFrom(record.nested[0], {0});
            const std::uint32_t length = record.length;
            record = ModelRecord{};
            record.length = length;
        }
        link = {};
        (isLower ? from.isLowerDropped : from.isSameDropped) = true;
        from.shape = ShapeOf(current());
        levels.push_back({message, KnownLevel(message, links),
                          (levels.empty() ? 0 : levels.back().lower) + isLower,
                          (levels.empty() ? 0 : levels.back().same) + !isLower, isLower});
        return true;
    };
    for (unsigned int steps = choices.Below(24); steps != 0; --steps) {
        const unsigned int kind = choices.Below(12);
        if (kind < 2) {
            if (!goToParent()) return "writing GoToParent";
        } else if (kind < 4) {
            Edit(choices, cursor.GetCurrentMessage(), current());
        } else if (kind == 4) {
            WalkToOneSide(choices.Flag(), cursor.GetCurrentMessage(), current());
        } else if (kind < 10) {
            const bool isLower = choices.Flag();
            if (!step(isLower, choices.Below(4) == 0)) return "writing step";
        } else {
            Rewrite(choices.Below(kRewritings), choices, cursor.GetCurrentMessage(), current(), other);
        }
        if (ModelMessage::Read(&cursor.GetCurrentMessage()) != current()) return "writing message";
        if (!IsAt(cursor.GetCurrentOffset(), levels.empty() ? 0 : levels.back().lower,
                  levels.empty() ? 0 : levels.back().same))
            return "writing offset";
        if (cursor.LowerLevelMessageIsUnvisited() != (known().lower != Spot{}))
            return "writing lower unvisited";
        if (cursor.SameLevelMessageIsUnvisited() != (known().same != Spot{})) return "writing same unvisited";
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
    switch (operation) {
        case 10: {
            const Message copy(one.Real());
            ModelMessage model;
            model.CopyFrom(one.model, {0});
            return FindDifference(copy, model);
        }
        case 11:
            return ReadWithCursor(choices, one, other);
        case 12:
        case 13:
            return WriteWithCursor(choices, one, other);
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
