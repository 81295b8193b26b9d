#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/messages/Message.h>

#if defined(_WIN32)  // <windows.h> has macros of these names
#pragma push_macro("FormatMessage")
#undef FormatMessage
#endif

namespace ZBase {

// A message tree as one text. The texts follow each other depth first, separated only by one tab for each
// lower-level step on the way; "Unknown." stands for a message without text. Throw `std::bad_alloc`. The tabs
// are counted in 16 bits: at a depth of 65536 there is none.

/// The whole tree, by `SimpleMessageLocalizer`.
ZBASE_API ReturnString FormatMessage(const Message& message, unsigned short language);

/// The whole tree, by `localizer`. Only reads, in memory that is linear in the text. For a message that is
/// not const overload resolution takes the form below: pass `std::as_const(message)`.
ZBASE_API ReturnString FormatMessage(const Message& message, unsigned short language,
                                     Message::Localizer& localizer);

/// The whole tree, by `localizer`, and it writes: the walk takes each nested message out of `message` and
/// packs it in again, also when an exception of `localizer` ends it. So each call leaves `message` larger by
/// what is nested in it, until it is copied, and costs more the deeper the tree is: a record of 1 MB with
/// 3,000 levels takes 3 GiB. Pass a const message unless you need that. `localizer` may change other
/// messages, but not `message`.
ZBASE_API ReturnString FormatMessage(Message& message, unsigned short language,
                                     Message::Localizer& localizer);

/// `message` and the chain of lower-level messages under it, by `localizer`; each text is also stored in
/// `localized`, in a tree of the same shape. Leaves out every same-level message; kept for callers that show
/// a chain of causes. Each call leaves `localized` larger by what is nested in it, until it is copied, and
/// costs as the form above does.
ZBASE_API ReturnString FormatMessage(const Message& message, Message& localized, unsigned short language,
                                     Message::Localizer& localizer);

/// The template with each of "%1" to "%9" replaced by that parameter, and "%%" by "%". Placeholders without a
/// parameter stay; parameters that no placeholder names follow in square brackets, the tenth and later ones
/// always. `parameters` ends with a null pointer. A null template counts as an empty one, null `parameters`
/// as none. Makes one allocation; throws `std::bad_alloc` when it fails or the size does not fit in a
/// `size_t`.
ZBASE_API ReturnString MergeParametersIntoTemplate(const char* textTemplate, const char* const parameters[]);

#if defined(_WIN32)
// What the calls are named by the macros of <windows.h>.
template <class... Arguments>
ReturnString FormatMessageA(Arguments&&... arguments) {
    return FormatMessage(static_cast<Arguments&&>(arguments)...);
}
template <class... Arguments>
ReturnString FormatMessageW(Arguments&&... arguments) {
    return FormatMessage(static_cast<Arguments&&>(arguments)...);
}
#endif

}  // namespace ZBase

#if defined(_WIN32)
#pragma pop_macro("FormatMessage")
#endif
