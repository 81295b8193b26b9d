#include "tests/support/MessageCursorProgram.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/MessageCursor.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace test {
namespace {

using ZBase::ConstMessageCursor;
using ZBase::CursorOffset;
using ZBase::Message;
using ZBase::MessageCursor;

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

}  // namespace

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
        if (levels.back().message != nullptr && choices.Below(8) == 0) {
            const ConstMessageCursor copy(cursor);
            ConstMessageCursor assigned(specimen.Real());
            assigned = copy;
            cursor = assigned;
        }
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
        if (levels.empty() && choices.Below(8) == 0) {
            const MessageCursor copy(cursor);
            cursor = copy;
        }
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

}  // namespace test
