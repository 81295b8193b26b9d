#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/detail/Links.h>

#include <deque>
#include <new>

namespace ZBase {

using namespace detail;

namespace {

struct Level {
    const Message* message;
    Links<const Record> links;
    CursorOffset offset;
    bool lowerLevelVisited = false;
    bool sameLevelVisited = false;
};

}  // namespace

struct ConstMessageCursor::State {
    std::deque<Level> levels;  // from the root on
    Block missing;             // stands in for a message that does not exist

    explicit State(const Message& root) {
        InitializeBlock(missing, sizeof(missing));
        levels.push_back({&root, FindLinks(BlockOf(root)), {}});
    }

    State(const State& other) : levels(other.levels) { InitializeBlock(missing, sizeof(missing)); }
    ~State() { FreeBlockChain(missing); }

    // What `GetMessage` keeps in `missing` has one owner.
    State& operator=(const State& other) {
        levels = other.levels;
        return *this;
    }

    bool GoTo(const Record* link, bool create, bool Level::*visited, unsigned short CursorOffset::*steps) {
        if (link == nullptr && !create) return false;
        Level level{&MessageOf(missing), {}, levels.back().offset};
        ++(level.offset.*steps);
        if (link != nullptr) {
            level.message = &link->As<Message>();
            level.links = FindLinks(link->As<Block>());
        }
        Level& from = levels.back();
        try {
            levels.push_back(level);
        } catch (const std::bad_alloc&) {
            return false;
        }
        from.*visited = true;
        return true;
    }
};

ConstMessageCursor::ConstMessageCursor(const Message& root) : mpState(new State(root)) {}

ConstMessageCursor::ConstMessageCursor(const ConstMessageCursor& other)
    : mpState(new State(*other.mpState)) {}

ConstMessageCursor& ConstMessageCursor::operator=(const ConstMessageCursor& other) {
    if (&other != this) *mpState = *other.mpState;
    return *this;
}

ConstMessageCursor::~ConstMessageCursor() {
    delete mpState;
}

bool ConstMessageCursor::LowerLevelMessageIsUnvisited() const {
    const Level& level = mpState->levels.back();
    return level.links.lowerLevel != nullptr && !level.lowerLevelVisited;
}

bool ConstMessageCursor::SameLevelMessageIsUnvisited() const {
    const Level& level = mpState->levels.back();
    return level.links.sameLevel != nullptr && !level.sameLevelVisited;
}

bool ConstMessageCursor::GoToLowerLevelMessage(bool create) {
    const Record* link = mpState->levels.back().links.lowerLevel;
    return mpState->GoTo(link, create, &Level::lowerLevelVisited, &CursorOffset::lower_level_offset);
}

bool ConstMessageCursor::GoToSameLevelMessage(bool create) {
    const Record* link = mpState->levels.back().links.sameLevel;
    return mpState->GoTo(link, create, &Level::sameLevelVisited, &CursorOffset::same_level_offset);
}

bool ConstMessageCursor::GoToParent() {
    if (mpState->levels.size() < 2) return false;
    mpState->levels.pop_back();
    return true;
}

const Message& ConstMessageCursor::GetCurrentMessage() const {
    return *mpState->levels.back().message;
}

CursorOffset ConstMessageCursor::GetCurrentOffset() const {
    return mpState->levels.back().offset;
}

}  // namespace ZBase
