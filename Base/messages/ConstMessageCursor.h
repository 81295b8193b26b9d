#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

namespace ZBase {

/// Walks a message tree and changes nothing. The tree must not be rewritten while a cursor is on it (cleared,
/// assigned to, swapped, wrapped, prepended to, destroyed); adding to it is safe.
class ZBASE_API ConstMessageCursor {
public:
    /// Stands on the root. Throws `std::bad_alloc`.
    ConstMessageCursor(const Message& root);

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
