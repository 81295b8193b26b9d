#include <Base/frame/detail/TextBlock.h>
#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>
#include <Base/text/UnicodeConversions.h>

namespace ZBase {

using namespace detail;

void Message::SetMessage(const unsigned short* text) {
    SetLocalizedText(0, WideCharToUTF8(text, true).c_str());
    Record* record = FindRecord(BlockOf(*this), TAG_WIDE_MESSAGE);
    if (text == nullptr) {
        if (record != nullptr) record->tag = TAG_DELETED;
        return;
    }
    const std::size_t length = TextLength(text);
    if (record == nullptr || record->PayloadSize() < WideTextPayloadSize(length)) {
        if (record != nullptr) record->tag = TAG_DELETED;
        record = PlaceRecord(BlockOf(*this), WideTextPayloadSize(length), TAG_WIDE_MESSAGE, false);
        if (record == nullptr) return;
    }
    WriteWideText(*record, text, length);
}

}  // namespace ZBase
