#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree without changing it. Additions to the tree are allowed meanwhile, and so is a walk of
/// a `MessageCursor`: a branch to which a step was taken stays visited. While the cursor is below the root,
/// the tree must not be rewritten (cleared, assigned to, swapped, wrapped, prepended to) nor end; if it is,
/// only `GoToParent` may be called, up to the root. At the root the cursor continues with what is there, none
/// of it visited: the root counts as rewritten when a record that was there before is gone, so that at its
/// place there is none of its size with its tag or the deleted one.
class ZBASE_API ConstMessageCursor {
public:
    /// Starts at the root. Throws `std::bad_alloc`.
    ConstMessageCursor(const Message& root);

    /// Deleted: a temporary would end before the first step.
    ConstMessageCursor(const Message&&) = delete;

    /// A copy of a cursor at a message that does not exist must not outlive its source. Throw
    /// `std::bad_alloc`.
    ConstMessageCursor(const ConstMessageCursor& other);
    ConstMessageCursor& operator=(const ConstMessageCursor& other);
    ~ConstMessageCursor();

    /// Whether the current message has such a message and no step was taken to it.
    bool LowerLevelMessageIsUnvisited() const;
    bool SameLevelMessageIsUnvisited() const;

    /// Steps to the lower-level message or the next one on the level. If there is none, false without
    /// `create`; with it the cursor is at an empty message in its place. False and no step when there is no
    /// memory.
    bool GoToLowerLevelMessage(bool create);
    bool GoToSameLevelMessage(bool create);

    /// Steps back; false at the root.
    bool GoToParent();

    const Message& GetCurrentMessage() const;
    CursorOffset GetCurrentOffset() const;

private:
    struct State;
    State* mpState;  // owned
};

}  // namespace ZBase
