#include <Base/messages/MessageCursor.h>
#include <Base/messages/detail/Links.h>

#include <deque>
#include <new>

namespace ZBase {

using namespace detail;

namespace {

// A message below the root, out of its parent while the cursor stands on it or further down.
struct Level {
    Links<Record> links;  // into the chain of `message`; null once a step was taken
    CursorOffset offset;
    Block message;  // the smallest block: its records are all in its chain, so that they stay where they are
};

}  // namespace

struct MessageCursor::State {
    std::deque<Level> levels;  // from the one below the root on
    Message* root;
    Links<Record> rootLinks;

    explicit State(Message& message) : root(&message), rootLinks(FindLinks(BlockOf(message))) {}
    ~State() { DropLevels(); }

    // The levels of a cursor have one owner: a copy begins at the root.
    State(const State& other) : root(other.root), rootLinks(other.rootLinks) {}
    State& operator=(const State&) = delete;

    void DropLevels() {
        for (Level& level : levels) FreeBlockChain(level.message);
        levels.clear();
    }

    Links<Record>& CurrentLinks() { return levels.empty() ? rootLinks : levels.back().links; }
    Block& CurrentBlock() { return levels.empty() ? BlockOf(*root) : levels.back().message; }
    CursorOffset CurrentOffset() const { return levels.empty() ? CursorOffset{} : levels.back().offset; }

    bool GoTo(Record*& link, bool create, unsigned short CursorOffset::*steps);
    void PackLastLevel();
};

bool MessageCursor::State::GoTo(Record*& link, bool create, unsigned short CursorOffset::*steps) {
    if (link == nullptr && !create) return false;
    Level level{{}, CurrentOffset(), {}};
    ++(level.offset.*steps);
    InitializeBlock(level.message, sizeof(level.message));
    if (link != nullptr) {
        const CopyResult copy = CopyRecords(link->As<Block>(), level.message, kDeleted);
        level.links = {copy.lowerLevel, copy.sameLevel};
        if (!copy.complete) {
            FreeBlockChain(level.message);
            return false;
        }
    }
    try {
        levels.push_back(level);
    } catch (const std::bad_alloc&) {
        FreeBlockChain(level.message);
        return false;
    }
    if (link != nullptr) link->tag = TAG_DELETED;
    link = nullptr;
    return true;
}

void MessageCursor::State::PackLastLevel() {
    Level level = levels.back();
    levels.pop_back();
    const bool isLower = level.offset.same_level_offset == CurrentOffset().same_level_offset;
    NestCopy(level.message, CurrentBlock(), isLower ? TAG_LOWER_LEVEL : TAG_SAME_LEVEL);
    FreeBlockChain(level.message);
}

MessageCursor::MessageCursor(Message& root) : mpState(new State(root)) {}

MessageCursor::MessageCursor(const MessageCursor& other) : mpState(new State(*other.mpState)) {}

MessageCursor& MessageCursor::operator=(const MessageCursor& other) {
    if (&other == this) return *this;
    mpState->DropLevels();
    mpState->root = other.mpState->root;
    mpState->rootLinks = other.mpState->rootLinks;
    return *this;
}

MessageCursor::~MessageCursor() {
    delete mpState;
}

bool MessageCursor::LowerLevelMessageIsUnvisited() const {
    return mpState->CurrentLinks().lowerLevel != nullptr;
}

bool MessageCursor::SameLevelMessageIsUnvisited() const {
    return mpState->CurrentLinks().sameLevel != nullptr;
}

bool MessageCursor::GoToLowerLevelMessage(bool create) {
    return mpState->GoTo(mpState->CurrentLinks().lowerLevel, create, &CursorOffset::lower_level_offset);
}

bool MessageCursor::GoToSameLevelMessage(bool create) {
    return mpState->GoTo(mpState->CurrentLinks().sameLevel, create, &CursorOffset::same_level_offset);
}

bool MessageCursor::GoToParent() {
    if (mpState->levels.empty()) return false;
    mpState->PackLastLevel();
    return true;
}

Message& MessageCursor::GetCurrentMessage() const {
    return MessageOf(mpState->CurrentBlock());
}

CursorOffset MessageCursor::GetCurrentOffset() const {
    return mpState->CurrentOffset();
}

}  // namespace ZBase
