#pragma once

#include <Base/messages/CursorOffset.h>
#include <Base/messages/Message.h>

#include <string>

namespace test {

/// outer > middle > inner, then "next" after middle
inline ZBase::Message Tree() {
    using ZBase::Message;
    Message message(1, 3, "inner");
    message.WrapBy(1, 2, "middle");
    Message next(1, 4, "next");
    next.PrependBy(message);
    next.WrapBy(1, 1, "outer");
    return next;
}

inline std::string Text(ZBase::CursorOffset offset) {
    return std::to_string(offset.lower_level_offset) + "," + std::to_string(offset.same_level_offset);
}

}  // namespace test
