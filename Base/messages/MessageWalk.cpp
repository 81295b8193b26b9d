#include <Base/messages/MessageWalk.h>
#include <Base/messages/detail/Links.h>

namespace ZBase {

using namespace detail;

MessageWalk::Iterator MessageWalk::begin() noexcept {
    mFollowing.clear();
    mVisit = {mpRoot, 0, 0, 0, EMessageRelation::eRoot};
    return Iterator(*this);
}

void MessageWalk::GoToNext() {
    const auto links = FindLinks(BlockOf(*mVisit.message));
    const std::size_t number = mVisit.number;
    if (links.sameLevel != nullptr) {
        const Message& following = links.sameLevel->As<Message>();
        mFollowing.push_back({&following, 0, number, mVisit.level, EMessageRelation::eSameLevel});
    }
    if (links.lowerLevel != nullptr) {
        const Message& lower = links.lowerLevel->As<Message>();
        mVisit = {&lower, 0, number, mVisit.level + 1, EMessageRelation::eLowerLevel};
    } else if (!mFollowing.empty()) {
        mVisit = mFollowing.back();
        mFollowing.pop_back();
    } else {
        mVisit.message = nullptr;
    }
    mVisit.number = number + 1;
}

}  // namespace ZBase
