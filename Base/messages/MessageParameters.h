#pragma once

#include <Base/frame/Api.h>
#include <Base/messages/Message.h>

#include <cstddef>
#include <iterator>

namespace ZBase {

/// The parameters of one message, for `for` and the algorithms of ranges:
///
///     for (const char* parameter : MessageParameters(message)) ...
///
/// All of them are read in one walk. The message must outlive the range, and its texts are valid until it
/// changes. Allocates nothing.
class MessageParameters {
public:
    class Iterator;

    explicit MessageParameters(const Message& message) noexcept : mpMessage(&message) {}

    /// Deleted: a temporary would end before the first parameter is read.
    explicit MessageParameters(const Message&&) = delete;

    Iterator begin() const noexcept;
    std::default_sentinel_t end() const noexcept { return {}; }

private:
    const Message* mpMessage;  // held, not owned
};

/// A forward iterator, valid as long as the message does not change.
class ZBASE_API MessageParameters::Iterator {
public:
    using value_type = const char*;
    using difference_type = std::ptrdiff_t;

    /// At the end.
    Iterator() = default;

    /// At the first parameter of a message.
    explicit Iterator(const Message& message) noexcept;

    const char* operator*() const noexcept { return mpText; }
    Iterator& operator++() noexcept;
    Iterator operator++(int) noexcept;
    bool operator==(const Iterator& other) const noexcept { return mpText == other.mpText; }
    bool operator==(std::default_sentinel_t) const noexcept { return mpText == nullptr; }

private:
    const void* mpBlock = nullptr;  // of the message, the block with the text
    const char* mpText = nullptr;
};

inline MessageParameters::Iterator MessageParameters::begin() const noexcept {
    return Iterator(*mpMessage);
}

}  // namespace ZBase
