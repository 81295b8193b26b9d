#include <Base/messages/detail/MessageLine.h>

namespace ZBase::detail {

MessageLine::MessageLine(const Message& message, unsigned short language) {
    RecordWalker walker(BlockOf(message));
    while (const Record* record = walker.Next()) {
        switch (record->tag) {
            case TAG_HEADER:
                mID = record->As<Header>().id;
                mDomain = record->As<Header>().domain;
                break;
            case TAG_TEMPLATE:
                mpTemplate = record->Text();
                break;
            case TAG_PARAMETER:
                AddParameter(record->Text());
                break;
            case TAG_LOCALIZED_TEXT:
                if (record->As<LocalizedText>().language != language) break;
                mpStored = record->As<LocalizedText>().Text();
                return;
            default:
                break;
        }
    }
    if (mMore.empty()) {
        mFew[mCount] = nullptr;
    } else {
        mMore.push_back(nullptr);
    }
}

void MessageLine::AddParameter(const char* text) {
    if (mCount < kFew) {
        mFew[mCount++] = text;
        return;
    }
    if (mMore.empty()) mMore.assign(mFew, mFew + kFew);
    mMore.push_back(text);
}

}  // namespace ZBase::detail
