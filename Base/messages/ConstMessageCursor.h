#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree and changes nothing. Adding to the tree is safe, and so is a walk of a
/// `MessageCursor`: a branch to which a step was taken stays visited. While the cursor is below the root, the
/// tree must not be rewritten (cleared, assigned to, swapped, wrapped, prepended to) nor end; then only
/// `GoToParent` is left, up to the root. At the root it goes on from what is there, none of it visited: the
/// root counts as rewritten when a record that was there before is gone, so that its place holds none of its
/// size that has its kind or is deleted.
class ZBASE_API ConstMessageCursor {
public:
    /// Stands on the root. Throws `std::bad_alloc`.
    ConstMessageCursor(const Message& root);

    /// A temporary would be gone before the first step.
    ConstMessageCursor(const Message&&) = delete;

    /// A copy of a cursor that stands on a message which does not exist must not outlive its source. Throw
    /// `std::bad_alloc`.
    ConstMessageCursor(const ConstMessageCursor& other);
    ConstMessageCursor& operator=(const ConstMessageCursor& other);
    ~ConstMessageCursor();

    /// Whether the current message has such a message and no step was taken to it.
    bool LowerLevelMessageIsUnvisited() const;
    bool SameLevelMessageIsUnvisited() const;

    /// Steps to the lower-level message or the next one on the level. Where there is none, false without
    /// `create`; with it the cursor stands on an empty message in its place. False and no step when there is
    /// no memory.
    bool GoToLowerLevelMessage(bool create);
    bool GoToSameLevelMessage(bool create);

    /// Steps back to where the cursor came from; false at the root.
    bool GoToParent();

    const Message& GetCurrentMessage() const;
    CursorOffset GetCurrentOffset() const;

private:
    struct State;
    State* mpState;  // owned
};

}  // namespace ZBase
