#pragma once

#include <Base/frame/detail/TextBlock.h>

#include <cstddef>
#include <utility>

/// The members of a result string of `UNIT`s. The three strings are classes of their own, with exported names
/// and a layout that modules know, so they can't be made of one template; what they do is the same.
// NOLINTBEGIN(bugprone-macro-parentheses): a type does not stand in them
#define ZBASE_RETURN_STRING_MEMBERS(STRING, UNIT)                                                    \
    STRING::STRING(const UNIT* text) : mpText(detail::CopyText(text)) {}                             \
    STRING::STRING(std::size_t length, const UNIT* text) : mpText(detail::MakeText(length, text)) {} \
    STRING::STRING(const STRING& other) : mpText(std::exchange(other.mpText, nullptr)) {}            \
    STRING::~STRING() {                                                                              \
        detail::FreeText(mpText);                                                                    \
    }                                                                                                \
    std::size_t STRING::GetLength() const {                                                          \
        return mpText == nullptr ? 0 : detail::TextLength(mpText);                                   \
    }                                                                                                \
    void STRING::Swap(UNIT*& other) {                                                                \
        std::swap(mpText, other);                                                                    \
    }
// NOLINTEND(bugprone-macro-parentheses)
