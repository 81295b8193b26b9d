#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/detail/MessageLine.h>
#include <Base/messages/detail/Records.h>
#include <Base/text/UnicodeConversions.h>

namespace ZBase {

using namespace detail;

ReturnString Message::Localize(Localizer& localizer, unsigned short language) const {
    const MessageLine line(*this, language);
    if (line.Stored() != nullptr) return ReturnString(line.Stored());
    return localizer.LocalizeText(language, line.Domain(), line.ID(), line.Template(), line.Parameters());
}

const unsigned short* Message::GetMessage() const {
    constexpr unsigned short keptLanguage = 0x409;  // whatever the caller's is
    if (const Record* kept = FindRecord(BlockOf(*this), TAG_WIDE_MESSAGE)) return WideText(*kept);
    const ReturnWString text = UTF8ToWideChar(FormatMessage(*this, keptLanguage).c_str(), true);
    const std::size_t length = text.GetLength();
    // The text is cached although the message is const; the cache is not part of its value.
    Block& block = BlockOf(const_cast<Message&>(*this));
    Record* record = PlaceRecord(block, WideTextPayloadSize(length), TAG_WIDE_MESSAGE, false);
    if (record == nullptr) return nullptr;
    WriteWideText(*record, text.c_str(), length);
    return WideText(*record);
}

}  // namespace ZBase
