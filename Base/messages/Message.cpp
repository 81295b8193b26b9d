#include <Base/messages/Message.h>
#include <Base/messages/detail/Records.h>

#include <utility>

namespace ZBase {

using namespace detail;

const unsigned int Message::MIN_SIZE;

Message::Message() noexcept : Message(kStockCapacity) {}

Message::Message(unsigned short domain, int id, const char* textTemplate) noexcept
    : Message(kStockCapacity, domain, id, textTemplate) {}

Message::Message(const Message& other) noexcept : Message(kStockCapacity, other) {}

Message::Message(Message&& other) noexcept : Message(kStockCapacity) {
    TakeContent(BlockOf(other), BlockOf(*this));
}

Message::Message(unsigned int size) noexcept {
    InitializeBlock(BlockOf(*this), size);
}

Message::Message(unsigned int size, const Message& other) noexcept {
    InitializeBlock(BlockOf(*this), size);
    CopyContent(BlockOf(other), BlockOf(*this));
}

Message::Message(unsigned int size, unsigned short domain, int id, const char* textTemplate) noexcept {
    InitializeBlock(BlockOf(*this), size);
    PlaceHeaderAndTemplate(BlockOf(*this), domain, id, textTemplate);
}

Message::~Message() {
    FreeBlockChain(BlockOf(*this));
}

Message& Message::operator=(const Message& other) noexcept {
    // A message nested in this one would be destroyed with the old content.
    if (&other != this && Holds(BlockOf(*this), &other)) return *this = Message(other);
    Clear();
    CopyContent(BlockOf(other), BlockOf(*this));
    return *this;
}

Message& Message::operator=(Message&& other) noexcept {
    // A message nested in this one is part of its bytes and can't be moved from.
    if (&other != this && Holds(BlockOf(*this), &other)) return *this = std::as_const(other);
    Clear();
    TakeContent(BlockOf(other), BlockOf(*this));
    return *this;
}

void Message::Clear() {
    Block& block = BlockOf(*this);
    FreeBlockChain(block);
    InitializeBlock(block, block.capacity);
}

bool Message::IsEmpty() const {
    RecordWalker walker(BlockOf(*this));
    const Record* record = walker.Next();
    while (record != nullptr && record->tag == TAG_DELETED) record = walker.Next();
    return record == nullptr;
}

bool Message::Swap(Message& other) {
    return SwapContents(BlockOf(*this), BlockOf(other));
}

unsigned short Message::GetDomain() const {
    const Record* record = FindRecord(BlockOf(*this), TAG_HEADER);
    return record == nullptr ? 0 : record->As<Header>().domain;
}

int Message::GetID() const {
    const Record* record = FindRecord(BlockOf(*this), TAG_HEADER);
    return record == nullptr ? 0 : record->As<Header>().id;
}

unsigned int Message::GetErrorCode() const {
    return static_cast<unsigned int>(GetID());
}

void Message::SetDomainAndID(unsigned short domain, int id) {
    Record* record = FindRecord(BlockOf(*this), TAG_HEADER);
    if (record == nullptr) {
        PlaceHeader(BlockOf(*this), domain, id);
        return;
    }
    Header& header = record->As<Header>();
    header.id = id;
    header.domain = domain;
}

const char* Message::GetTemplate() const {
    const Record* record = FindRecord(BlockOf(*this), TAG_TEMPLATE);
    return record == nullptr ? nullptr : record->Text();
}

void Message::SetTemplate(const char* textTemplate) {
    Record* record = FindRecord(BlockOf(*this), TAG_TEMPLATE);
    if (textTemplate != nullptr && record != nullptr) {
        const std::size_t size = std::strlen(textTemplate) + 1;
        if (record->PayloadSize() >= size) {
            std::memmove(record->Payload(), textTemplate, size);
            return;
        }
    }
    if (record != nullptr) record->tag = TAG_DELETED;
    if (textTemplate != nullptr) PlaceText(BlockOf(*this), textTemplate, TAG_TEMPLATE, false);
}

const char* Message::GetParameter(unsigned int index) const {
    RecordWalker walker(BlockOf(*this));
    while (const Record* record = walker.Next()) {
        if (record->tag == TAG_PARAMETER && index-- == 0) return record->Text();
    }
    return nullptr;
}

unsigned int Message::GetParameterCount() const {
    unsigned int count = 0;
    RecordWalker walker(BlockOf(*this));
    while (const Record* record = walker.Next()) {
        if (record->tag == TAG_PARAMETER) ++count;
    }
    return count;
}

namespace {

template <class AnyBlock>
auto* FindLocalizedText(AnyBlock& block, unsigned short language) {
    RecordWalker<AnyBlock> walker(block);
    auto* record = walker.Next();
    while (record != nullptr &&
           (record->tag != TAG_LOCALIZED_TEXT || record->template As<LocalizedText>().language != language))
        record = walker.Next();
    return record;
}

}  // namespace

const char* Message::GetLocalizedText(unsigned short language) const {
    const Record* record = FindLocalizedText(BlockOf(*this), language);
    return record == nullptr ? nullptr : record->As<LocalizedText>().Text();
}

void Message::SetLocalizedText(unsigned short language, const char* text) {
    Block& block = BlockOf(*this);
    Record* record = FindLocalizedText(block, language);
    if (text == nullptr) {
        if (record != nullptr) record->tag = TAG_DELETED;
        return;
    }
    const std::size_t size = std::strlen(text) + 1;
    const std::size_t needed = LocalizedTextPayloadSize(size - 1);
    if (record == nullptr || record->PayloadSize() < needed) {
        if (record != nullptr) record->tag = TAG_DELETED;
        record = PlaceRecord(block, needed, TAG_LOCALIZED_TEXT, false);
        if (record == nullptr) return;
        record->As<LocalizedText>().language = language;
    }
    std::memmove(record->Payload() + sizeof(LocalizedText), text, size);
}

}  // namespace ZBase
