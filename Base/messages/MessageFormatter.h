#pragma once

// Formatters for `std::format("{}", message)` and `fmt::format("{}", message)`: a message, or an exception
// that is one, as `FormatMessage(message, 0)`, with the options of a text: "{:>20}". Each is defined if its
// library was included.

#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>

#include <concepts>
#include <version>

#if defined(__cpp_lib_format)
#include <format>

template <std::derived_from<ZBase::Message> AnyMessage>
struct std::formatter<AnyMessage, char> : std::formatter<std::string_view, char> {
    template <class Context>
    auto format(const ZBase::Message& message, Context& context) const {
        const ZBase::ReturnString text = ZBase::FormatMessage(message, 0);
        return std::formatter<std::string_view, char>::format(text.c_str(), context);
    }
};
#endif

#if __has_include(<fmt/core.h>)
#include <fmt/core.h>

#if FMT_VERSION >= 80000
template <std::derived_from<ZBase::Message> AnyMessage>
struct fmt::formatter<AnyMessage, char> : fmt::formatter<fmt::string_view, char> {
    template <class Context>
    auto format(const ZBase::Message& message, Context& context) const {
        const ZBase::ReturnString text = ZBase::FormatMessage(message, 0);
        return fmt::formatter<fmt::string_view, char>::format(fmt::string_view(text.c_str()), context);
    }
};
#endif
#endif
