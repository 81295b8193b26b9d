#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/detail/Links.h>

#include <deque>
#include <new>

namespace ZBase {

using namespace detail;

namespace {

struct Level {
    const Message* message;
    Links<const Record> links;  // at the root those of the last step
    CursorOffset offset;
    bool lowerLevelVisited = false;
    bool sameLevelVisited = false;
};

}  // namespace

struct ConstMessageCursor::State {
    std::deque<Level> levels;  // from the root on
    LiveLinks rootLinks;       // the other levels are packed in the root and stay as they are
    Block missing;             // stands in for a message that does not exist

    explicit State(const Message& root) : rootLinks(BlockOf(root)) {
        InitializeBlock(missing, sizeof(missing));
        levels.push_back({&root, {}, {}});
    }

    State(const State& other) : levels(other.levels), rootLinks(other.rootLinks) {
        InitializeBlock(missing, sizeof(missing));
    }
    ~State() { FreeBlockChain(missing); }

    // The text that `GetMessage` keeps in `missing` has one owner.
    State& operator=(const State& other) {
        levels = other.levels;
        rootLinks = other.rootLinks;
        return *this;
    }

    // The current level as it is now.
    Level& Current() {
        Level& level = levels.back();
        if (levels.size() != 1) return level;
        bool isRewritten = false;
        level.links = rootLinks.Look(BlockOf(*level.message), isRewritten);
        if (isRewritten) level.lowerLevelVisited = level.sameLevelVisited = false;
        return level;
    }

    bool GoTo(const Record* Links<const Record>::*link, bool create, bool Level::*visited,
              unsigned short CursorOffset::*steps) {
        Level& from = Current();
        const Record* record = from.links.*link;
        if (record == nullptr && !create) return false;
        Level level{&MessageOf(missing), {}, from.offset};
        ++(level.offset.*steps);
        if (record != nullptr) {
            level.message = &record->As<Message>();
            level.links = FindLinks(record->As<Block>());
        }
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
    const Level& level = mpState->Current();
    return level.links.lowerLevel != nullptr && !level.lowerLevelVisited;
}

bool ConstMessageCursor::SameLevelMessageIsUnvisited() const {
    const Level& level = mpState->Current();
    return level.links.sameLevel != nullptr && !level.sameLevelVisited;
}

bool ConstMessageCursor::GoToLowerLevelMessage(bool create) {
    return mpState->GoTo(&Links<const Record>::lowerLevel, create, &Level::lowerLevelVisited,
                         &CursorOffset::lower_level_offset);
}

bool ConstMessageCursor::GoToSameLevelMessage(bool create) {
    return mpState->GoTo(&Links<const Record>::sameLevel, create, &Level::sameLevelVisited,
                         &CursorOffset::same_level_offset);
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
