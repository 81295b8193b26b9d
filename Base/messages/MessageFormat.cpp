#include <Base/messages/MessageFormat.h>

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageWalk.h>
#include <Base/messages/detail/MessageLine.h>
#include <Base/text/detail/ResultText.h>

#include <algorithm>
#include <new>
#include <string>

namespace ZBase {

using namespace detail;

namespace {

// Steps a cursor back to the root: messages that a `MessageCursor` has taken out would be lost when an
// exception ends the walk.
class ClimbToRoot {
public:
    explicit ClimbToRoot(MessageCursor& cursor) : mCursor(cursor) {}
    ~ClimbToRoot() {
        while (mCursor.GoToParent()) {
        }
    }
    ClimbToRoot(const ClimbToRoot&) = delete;
    ClimbToRoot& operator=(const ClimbToRoot&) = delete;

private:
    MessageCursor& mCursor;
};

// A step to an existing message fails only for want of memory.
void Demand(bool stepped) {
    if (!stepped) throw std::bad_alloc();
}

void AppendText(std::string& text, const ReturnString& own) {
    text.append(own.c_str() != nullptr ? own.c_str() : "Unknown.");
}

// Enough for the text of an ordinary tree, whose records contain it, plus the name of a domain and an id.
// Larger trees may have much else, such as texts of other languages.
std::size_t ExpectedLength(const Block& root) {
    constexpr std::uint64_t kOrdinary = 4096;
    return static_cast<std::size_t>(std::min(2 * SumRecordLengths(root, kDeleted), kOrdinary));
}

// One allocation, without a `strlen`.
ReturnString MakeResult(const std::string& text) {
    Unfinished<ReturnString> result(text.size());
    return result.Finish(std::copy_n(text.data(), text.size(), result.Get()));
}

// Appends the line of the message at the cursor; returns its text, which may be a null string.
template <class Cursor>
ReturnString AppendMessage(std::string& text, const Cursor& cursor, Message::Localizer& localizer,
                           unsigned short language) {
    text.append(cursor.GetCurrentOffset().lower_level_offset, '\t');
    ReturnString own = cursor.GetCurrentMessage().Localize(localizer, language);
    AppendText(text, own);
    return own;
}

// Steps to the next message depth first, lower levels before the same level; false, at the root, after the
// last.
template <class Cursor>
bool GoToNext(Cursor& cursor) {
    if (cursor.LowerLevelMessageIsUnvisited()) {
        Demand(cursor.GoToLowerLevelMessage(false));
        return true;
    }
    while (!cursor.SameLevelMessageIsUnvisited()) {
        if (!cursor.GoToParent()) return false;
    }
    Demand(cursor.GoToSameLevelMessage(false));
    return true;
}

template <class Cursor>
ReturnString FormatByCursor(Cursor& cursor, Message::Localizer& localizer, unsigned short language) {
    std::string text;
    do {
        AppendMessage(text, cursor, localizer, language);
    } while (GoToNext(cursor));
    return MakeResult(text);
}

}  // namespace

ReturnString FormatMessage(const Message& message, unsigned short language) {
    std::string text;
    text.reserve(ExpectedLength(BlockOf(message)));
    for (const MessageVisit& visit : MessageWalk(message)) {
        text.append(static_cast<unsigned short>(visit.level), '\t');
        const MessageLine line(*visit.message, language);
        if (line.Stored() != nullptr) {
            text.append(line.Stored());
        } else {
            AppendSimpleText(text, language, line.Domain(), line.ID(), line.Template(), line.Parameters());
        }
    }
    return MakeResult(text);
}

ReturnString FormatMessage(const Message& message, unsigned short language, Message::Localizer& localizer) {
    std::string text;
    for (const MessageVisit& visit : MessageWalk(message)) {
        text.append(static_cast<unsigned short>(visit.level), '\t');
        AppendText(text, visit.message->Localize(localizer, language));
    }
    return MakeResult(text);
}

ReturnString FormatMessage(Message& message, unsigned short language, Message::Localizer& localizer) {
    MessageCursor cursor(message);
    const ClimbToRoot climb(cursor);
    return FormatByCursor(cursor, localizer, language);
}

ReturnString FormatMessage(const Message& message, Message& localized, unsigned short language,
                           Message::Localizer& localizer) {
    ConstMessageCursor source(message);
    MessageCursor destination(localized);
    const ClimbToRoot climb(destination);
    std::string text;
    for (;;) {
        const ReturnString own = AppendMessage(text, source, localizer, language);
        if (own.c_str() != nullptr) destination.GetCurrentMessage().SetLocalizedText(language, own.c_str());
        // Only this link is followed, so same-level messages are in neither text; kept for callers that show
        // a chain of causes.
        if (!source.LowerLevelMessageIsUnvisited()) break;
        Demand(source.GoToLowerLevelMessage(false));
        Demand(destination.GoToLowerLevelMessage(true));
    }
    return MakeResult(text);
}

}  // namespace ZBase
