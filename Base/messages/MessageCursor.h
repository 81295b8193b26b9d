#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree and lets each message on the way be changed: a step down takes the nested message out
/// of its parent, a step back packs it in again. The cursor must be back at the root before it ends, or what
/// it holds below is lost; the root must outlive it and stay where it is.
///
/// The root and the current message may be added to and walked by other cursors: a branch to which a step was
/// taken stays visited, another is what is there by then. They may also be rewritten: cleared, assigned to,
/// swapped, wrapped, prepended to. Then a step goes on from what is there, none of it visited. A message
/// counts as rewritten when a record that the cursor left in it is gone: its place holds none of its size
/// that has its kind or is deleted. What is packed in goes into whatever the parent is by then.
///
/// A step copies all that is nested in the message: walking n levels down and back costs n * n. And a visit
/// leaves the parent larger by what was visited, until it is copied.
class ZBASE_API MessageCursor {
public:
    /// Stands on the root. Throws `std::bad_alloc`.
    MessageCursor(Message& root);

    /// Only a cursor that stands at its root may be copied or assigned. Throw `std::bad_alloc`.
    MessageCursor(const MessageCursor& other);
    MessageCursor& operator=(const MessageCursor& other);
    ~MessageCursor();

    /// Whether the current message has such a message that no step was taken to.
    bool LowerLevelMessageIsUnvisited() const;
    bool SameLevelMessageIsUnvisited() const;

    /// Steps to the lower-level message or the next one on the level. Where there is none, or a step was
    /// taken to it before, false without `create`; with it a new, empty message is begun. False and no step
    /// when there is no memory.
    bool GoToLowerLevelMessage(bool create);
    bool GoToSameLevelMessage(bool create);

    /// Steps back to where the cursor came from, with the message packed into its parent; false at the root.
    bool GoToParent();

    /// Good until the cursor leaves the message for its parent.
    Message& GetCurrentMessage() const;
    CursorOffset GetCurrentOffset() const;

private:
    struct State;
    State* mpState;  // owned
};

}  // namespace ZBase
