#include <Base/messages/MessageParameters.h>
#include <Base/messages/detail/Records.h>

namespace ZBase {

using namespace detail;

namespace {

const char* NextParameter(RecordWalker<const Block>& walker, const void*& block) {
    while (const Record* record = walker.Next()) {
        if (record->tag != TAG_PARAMETER) continue;
        block = &walker.CurrentBlock();
        return record->Text();
    }
    return nullptr;
}

}  // namespace

MessageParameters::Iterator::Iterator(const Message& message) noexcept {
    RecordWalker walker(BlockOf(message));
    mpText = NextParameter(walker, mpBlock);
}

MessageParameters::Iterator& MessageParameters::Iterator::operator++() noexcept {
    const auto* record = reinterpret_cast<const Record*>(mpText - sizeof(Record));
    RecordWalker<const Block> walker(*static_cast<const Block*>(mpBlock), record);
    mpText = NextParameter(walker, mpBlock);
    return *this;
}

MessageParameters::Iterator MessageParameters::Iterator::operator++(int) noexcept {
    const Iterator before = *this;
    ++*this;
    return before;
}

}  // namespace ZBase
