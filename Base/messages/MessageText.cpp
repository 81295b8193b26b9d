#include <Base/messages/Message.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/detail/Records.h>
#include <Base/text/UnicodeConversions.h>

#include <vector>

namespace ZBase {

using namespace detail;

ReturnString Message::Localize(Localizer& localizer, unsigned short language) const {
    unsigned short domain = MESSAGE_DOMAIN_UNKNOWN;
    int id = 0;
    const char* textTemplate = nullptr;
    std::vector<const char*> parameters;

    RecordWalker walker(BlockOf(*this));
    while (const Record* record = walker.Next()) {
        switch (record->tag) {
            case TAG_HEADER:
                id = record->As<Header>().id;
                domain = record->As<Header>().domain;
                break;
            case TAG_TEMPLATE:
                textTemplate = record->Text();
                break;
            case TAG_PARAMETER:
                parameters.push_back(record->Text());
                break;
            case TAG_LOCALIZED_TEXT:
                if (record->As<LocalizedText>().language != language) break;
                return ReturnString(record->As<LocalizedText>().Text());
            default:
                break;
        }
    }
    parameters.push_back(nullptr);
    return localizer.LocalizeText(language, domain, id, textTemplate, parameters.data());
}

const unsigned short* Message::GetMessage() const {
    constexpr unsigned short keptLanguage = 0x409;  // whatever the caller's is
    if (const Record* kept = FindRecord(BlockOf(*this), TAG_WIDE_MESSAGE)) return WideText(*kept);
    const ReturnWString text = UTF8ToWideChar(FormatMessage(*this, keptLanguage).c_str(), true);
    const std::size_t length = text.GetLength();
    // The text is kept although the message is constant: a cache is no part of what it says.
    Block& block = BlockOf(const_cast<Message&>(*this));
    Record* record = PlaceRecord(block, WideTextPayloadSize(length), TAG_WIDE_MESSAGE, false);
    if (record == nullptr) return nullptr;
    WriteWideText(*record, text.c_str(), length);
    return WideText(*record);
}

}  // namespace ZBase
