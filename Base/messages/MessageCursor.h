#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree and lets each message on the way be changed: a step down takes the nested message out
/// of its parent, a step back packs it in again. The root must not be rewritten meanwhile; and the cursor
/// must be back at the root before it ends, or what it holds below is lost.
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

    /// Good until the next step.
    Message& GetCurrentMessage() const;
    CursorOffset GetCurrentOffset() const;

private:
    struct State;
    State* mpState;  // owned
};

}  // namespace ZBase
