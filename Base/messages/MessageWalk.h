#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

#include <cstddef>
#include <iterator>
#include <vector>

namespace ZBase {

/// How a message is linked to its parent in a walk.
enum class EMessageRelation {
    eRoot,
    eLowerLevel,  // wrapped by the parent
    eSameLevel,   // follows the parent on its level
};

/// One message of a tree in a walk.
struct MessageVisit {
    const Message* message;  // in the root
    std::size_t number;      // of messages before this one
    std::size_t parent;  // the number of the message that this one is wrapped by or follows; 0 at the root
    std::size_t level;   // lower-level steps from the root
    EMessageRelation relation;
};

/// All messages of a tree, depth first, those of a lower level before those that follow on the same one:
///
///     for (const MessageVisit& visit : MessageWalk(message)) ...
///
/// Only reads, takes time that is linear in the tree, and memory only for messages still to come on the
/// levels above. The tree must outlive the walk and must not change meanwhile. A visit is valid until the
/// next one, its message as long as the tree does not change.
class ZBASE_API MessageWalk {
public:
    class Iterator;

    explicit MessageWalk(const Message& root) noexcept : mpRoot(&root), mVisit() {}

    /// Deleted: a temporary would end before the first visit.
    explicit MessageWalk(const Message&&) = delete;

    /// Goes to the root; a walk under way starts over.
    Iterator begin() noexcept;
    std::default_sentinel_t end() const noexcept { return {}; }

private:
    void GoToNext();

    const Message* mpRoot;  // held, not owned
    MessageVisit mVisit;    // without a message after the last one
    std::vector<MessageVisit> mFollowing;
};

/// Steps throw `std::bad_alloc`, and the walk does not move.
class MessageWalk::Iterator {
public:
    using value_type = MessageVisit;
    using difference_type = std::ptrdiff_t;

    explicit Iterator(MessageWalk& walk) noexcept : mpWalk(&walk) {}

    const MessageVisit& operator*() const noexcept { return mpWalk->mVisit; }
    const MessageVisit* operator->() const noexcept { return &mpWalk->mVisit; }
    Iterator& operator++() {
        mpWalk->GoToNext();
        return *this;
    }
    void operator++(int) { mpWalk->GoToNext(); }
    bool operator==(std::default_sentinel_t) const noexcept { return mpWalk->mVisit.message == nullptr; }

private:
    MessageWalk* mpWalk;  // held, not owned
};

}  // namespace ZBase
