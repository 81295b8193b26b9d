#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree and allows each message on the way to be changed: a step down copies the nested
/// message out of its parent, a step back packs it in again. The cursor must be back at the root before it
/// ends, or the messages below are lost; the root must outlive it and stay at its address.
///
/// The root and the current message may be added to, and other cursors may walk them: a branch to which a
/// step was taken stays visited, another is read as it is by then. They may also be rewritten: cleared,
/// assigned to, swapped, wrapped, prepended to. Then a step continues with what is there, none of it visited.
/// A message counts as rewritten when a record that the cursor left in it is gone: at its place there is none
/// of its size with its tag or the deleted one. A message is packed into whatever its parent is by then.
///
/// A step copies all that is nested in the message: n levels down and back cost O(n^2). A visit leaves the
/// parent larger by what was visited, until it is copied.
class ZBASE_API MessageCursor {
public:
    /// Starts at the root. Throws `std::bad_alloc`.
    MessageCursor(Message& root);

    /// Only a cursor that stands at its root may be copied or assigned. Throw `std::bad_alloc`.
    MessageCursor(const MessageCursor& other);
    MessageCursor& operator=(const MessageCursor& other);
    ~MessageCursor();

    /// Whether the current message has such a message that no step was taken to.
    bool LowerLevelMessageIsUnvisited() const;
    bool SameLevelMessageIsUnvisited() const;

    /// Steps to the lower-level message or the next one on the level. If there is none, or a step to it was
    /// taken before, false without `create`; with it a new, empty message is added. False and no step when
    /// there is no memory.
    bool GoToLowerLevelMessage(bool create);
    bool GoToSameLevelMessage(bool create);

    /// Steps back and packs the message into its parent; false at the root.
    bool GoToParent();

    /// Valid until the cursor steps back to the parent.
    Message& GetCurrentMessage() const;
    CursorOffset GetCurrentOffset() const;

private:
    struct State;
    State* mpState;  // owned
};

}  // namespace ZBase
