#include <Base/messages/MessageCursor.h>
#include <Base/messages/detail/Links.h>

#include <deque>
#include <new>
#include <utility>

namespace ZBase {

using namespace detail;

namespace {

// A message below the root, copied out of its parent while the cursor is at it or below it.
struct Level {
    LiveLinks links;  // those to which no step was taken
    CursorOffset offset;
    Block message;  // the smallest block, whose records are all in its chain
};

}  // namespace

struct MessageCursor::State {
    std::deque<Level> levels;  // from the one below the root on
    Message* root;
    LiveLinks rootLinks;

    explicit State(Message& message) : root(&message), rootLinks(BlockOf(message)) {}
    ~State() { DropLevels(); }

    // The levels of a cursor have one owner: a copy begins at the root.
    State(const State& other) : root(other.root), rootLinks(other.rootLinks) {}
    State& operator=(const State&) = delete;

    void DropLevels() {
        for (Level& level : levels) FreeBlockChain(level.message);
        levels.clear();
    }

    Block& CurrentBlock() { return levels.empty() ? BlockOf(*root) : levels.back().message; }
    CursorOffset CurrentOffset() const { return levels.empty() ? CursorOffset{} : levels.back().offset; }

    LiveLinks& CurrentLinks() { return levels.empty() ? rootLinks : levels.back().links; }

    // The current message may have been changed in any way since the last step.
    Links<Record> Look() {
        bool isRewritten = false;
        return CurrentLinks().Look(CurrentBlock(), isRewritten);
    }

    bool Push(Level&& level) {
        try {
            levels.push_back(std::move(level));
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    bool GoTo(ETag tag, bool create);
    void PackLastLevel();
};

bool MessageCursor::State::GoTo(ETag tag, bool create) {
    Block& from = CurrentBlock();
    LiveLinks& links = CurrentLinks();
    const Links<Record> now = Look();
    Record* const link = tag == TAG_LOWER_LEVEL ? now.lowerLevel : now.sameLevel;
    if (link == nullptr && !create) return false;
    Block message;
    InitializeBlock(message, sizeof(message));
    CopyResult copy;
    if (link != nullptr) copy = CopyRecords(link->As<Block>(), message, kDeleted);
    CursorOffset offset = CurrentOffset();
    ++(tag == TAG_LOWER_LEVEL ? offset.lower_level_offset : offset.same_level_offset);
    if (!copy.complete || !Push({LiveLinks(message, {copy.lowerLevel, copy.sameLevel}), offset, message})) {
        FreeBlockChain(message);
        return false;
    }
    if (link != nullptr) link->tag = TAG_DELETED;
    links.Drop(tag);
    links.Remember(from);
    return true;
}

void MessageCursor::State::PackLastLevel() {
    Level level = std::move(levels.back());
    levels.pop_back();
    // The comparison with the records before the step must come before the level is packed in.
    const Links<Record> now = Look();
    const bool isLower = level.offset.same_level_offset == CurrentOffset().same_level_offset;
    const ETag tag = isLower ? TAG_LOWER_LEVEL : TAG_SAME_LEVEL;
    if ((isLower ? now.lowerLevel : now.sameLevel) == nullptr) CurrentLinks().Drop(tag);
    NestCopy(level.message, CurrentBlock(), tag);
    CurrentLinks().Remember(CurrentBlock());
    FreeBlockChain(level.message);
}

MessageCursor::MessageCursor(Message& root) : mpState(new State(root)) {}

MessageCursor::MessageCursor(const MessageCursor& other) : mpState(new State(*other.mpState)) {}

MessageCursor& MessageCursor::operator=(const MessageCursor& other) {
    if (&other == this) return *this;
    LiveLinks rootLinks = other.mpState->rootLinks;
    mpState->DropLevels();
    mpState->root = other.mpState->root;
    mpState->rootLinks = std::move(rootLinks);
    return *this;
}

MessageCursor::~MessageCursor() {
    delete mpState;
}

bool MessageCursor::LowerLevelMessageIsUnvisited() const {
    return mpState->Look().lowerLevel != nullptr;
}

bool MessageCursor::SameLevelMessageIsUnvisited() const {
    return mpState->Look().sameLevel != nullptr;
}

bool MessageCursor::GoToLowerLevelMessage(bool create) {
    return mpState->GoTo(TAG_LOWER_LEVEL, create);
}

bool MessageCursor::GoToSameLevelMessage(bool create) {
    return mpState->GoTo(TAG_SAME_LEVEL, create);
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
