#include "tests/support/MessageModel.h"

#include "tests/support/MessageBytes.h"

#include <algorithm>

namespace test {
namespace {

ModelRecord MakeHeader(unsigned short domain, int id) {
    ModelRecord record;
    record.length = 13;
    record.tag = 1;
    record.domain = domain;
    record.id = id;
    return record;
}

ModelRecord MakeText(unsigned int tag, const std::string& text) {
    ModelRecord record;
    record.length = static_cast<std::uint32_t>(text.size()) + 6;
    record.tag = tag;
    record.text = text;
    return record;
}

// Of a dead record only the length counts.
void Delete(ModelRecord& record) {
    const std::uint32_t length = record.length;
    record = ModelRecord{};
    record.length = length;
}

bool IsIn(unsigned int tag, const std::vector<unsigned int>& tags) {
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

ModelRecord ReadRecord(const RecordView& view) {
    ModelRecord record;
    record.length = view.length;
    record.tag = view.tag;
    const unsigned char* payload = view.Payload();
    if (view.tag == 1) {
        record.id = static_cast<int>(Load32(payload));
        record.domain = Load16(payload + 4);
        record.radix = payload[6];
        record.width = payload[7];
    } else if (view.tag == 2 || view.tag == 3) {
        record.text = reinterpret_cast<const char*>(payload);
    } else if (view.tag == 6) {
        record.domain = Load16(payload);
        record.text = reinterpret_cast<const char*>(payload + 2);
    } else if (view.tag == 15) {
        const unsigned char* at = payload + reinterpret_cast<std::uintptr_t>(payload) % 2;
        for (; Load16(at) != 0; at += 2) record.wide += static_cast<char16_t>(Load16(at));
    } else if (view.tag == 4 || view.tag == 5) {
        record.nested.push_back(ModelMessage::Read(payload));
    }
    return record;
}

}  // namespace

ModelBlock::ModelBlock(std::uint32_t size) : capacity(size), free(size - 16) {}
bool ModelBlock::operator==(const ModelBlock& other) const = default;

ModelMessage::ModelMessage(std::uint32_t size) : blocks(1, ModelBlock(size)) {}
bool ModelMessage::operator==(const ModelMessage& other) const = default;

ModelRecord& ModelMessage::At(const Place& place) {
    return blocks[place.block].records[place.record];
}

const ModelRecord& ModelMessage::At(const Place& place) const {
    return blocks[place.block].records[place.record];
}

ModelMessage::Place ModelMessage::FirstOf(unsigned int tag) const {
    for (std::size_t b = 0; b != blocks.size(); ++b)
        for (std::size_t r = 0; r != blocks[b].records.size(); ++r)
            if (blocks[b].records[r].tag == tag) return {b, r, false};
    return {};
}

ModelMessage::Links ModelMessage::FindLinks() const {
    Links links;
    for (std::size_t b = 0; b != blocks.size(); ++b) {
        for (std::size_t r = 0; r != blocks[b].records.size(); ++r) {
            if (!links.lower.isNone && !links.same.isNone) return links;
            if (blocks[b].records[r].tag == 5) links.lower = {b, r, false};
            if (blocks[b].records[r].tag == 4) links.same = {b, r, false};
        }
    }
    return links;
}

bool ModelMessage::IsEmpty() const {
    for (const ModelBlock& block : blocks)
        for (const ModelRecord& record : block.records)
            if (record.tag != 0) return false;
    return true;
}

std::vector<std::string> ModelMessage::Parameters() const {
    std::vector<std::string> parameters;
    for (const ModelBlock& block : blocks)
        for (const ModelRecord& record : block.records)
            if (record.tag == 3) parameters.push_back(record.text);
    return parameters;
}

const ModelRecord* ModelMessage::FirstOrNull(unsigned int tag) const {
    const Place place = FirstOf(tag);
    return place.isNone ? nullptr : &At(place);
}

const ModelRecord* ModelMessage::LocalizedOrNull(unsigned short language) const {
    for (const ModelBlock& block : blocks)
        for (const ModelRecord& record : block.records)
            if (record.tag == 6 && record.domain == language) return &record;
    return nullptr;
}

ModelMessage::Place ModelMessage::Add(ModelRecord record, bool atEnd) {
    std::size_t index = blocks.size();
    for (std::size_t b = 0; b != blocks.size() && index == blocks.size(); ++b) {
        const bool isLast = b + 1 == blocks.size();
        if ((isLast || !atEnd) && blocks[b].free >= record.length) index = b;
    }
    if (index == blocks.size()) blocks.push_back(ModelBlock(std::max(record.length + 16, 100u)));
    blocks[index].free -= record.length;
    blocks[index].records.push_back(std::move(record));
    return {index, blocks[index].records.size() - 1, false};
}

void ModelMessage::Clear() {
    *this = ModelMessage(blocks[0].capacity);
}

void ModelMessage::Assign(const ModelMessage& other) {
    Clear();
    if (&other != this) CopyFrom(other, {0});
}

void ModelMessage::Swap(ModelMessage& other) {
    if (blocks[0].capacity == other.blocks[0].capacity) {
        blocks.swap(other.blocks);
        return;
    }
    ModelMessage& large = blocks[0].capacity > other.blocks[0].capacity ? *this : other;
    ModelMessage& small = &large == this ? other : *this;
    const std::uint32_t difference = large.blocks[0].capacity - small.blocks[0].capacity;
    large.blocks.swap(small.blocks);
    small.blocks.insert(small.blocks.begin(), ModelBlock(large.blocks[0].capacity));
    large.blocks[0].capacity += difference;
    large.blocks[0].free += difference;
}

void ModelMessage::SetDomainAndID(unsigned short domain, int id) {
    const Place place = FirstOf(1);
    if (place.isNone) {
        Add(MakeHeader(domain, id), false);
    } else {
        At(place).domain = domain;
        At(place).id = id;
    }
}

void ModelMessage::SetTemplate(const std::string* text) {
    const Place place = FirstOf(2);
    if (!place.isNone && text != nullptr && At(place).length >= text->size() + 6) {
        At(place).text = *text;
        return;
    }
    if (!place.isNone) Delete(At(place));
    if (text != nullptr) Add(MakeText(2, *text), false);
}

void ModelMessage::SetLocalizedText(unsigned short language, const std::string* text) {
    auto* old = const_cast<ModelRecord*>(LocalizedOrNull(language));
    if (old != nullptr && text != nullptr && old->length >= text->size() + 9) {
        old->text = *text;
        return;
    }
    if (old != nullptr) Delete(*old);
    if (text == nullptr) return;
    ModelRecord record = MakeText(6, *text);
    record.length += 3;
    record.domain = language;
    Add(std::move(record), false);
}

void ModelMessage::SetMessage(const std::u16string& text, const std::string& narrow) {
    SetLocalizedText(0, &narrow);
    const Place place = FirstOf(15);
    if (!place.isNone && At(place).length >= 2 * text.size() + 9) {
        At(place).wide = text;
        return;
    }
    if (!place.isNone) Delete(At(place));
    ModelRecord record;
    record.length = static_cast<std::uint32_t>(2 * text.size() + 9);
    record.tag = 15;
    record.wide = text;
    Add(std::move(record), false);
}

void ModelMessage::AddParameter(const std::string& text) {
    Add(MakeText(3, text), true);
}

void ModelMessage::AddNumber(std::uint32_t value, bool isSigned) {
    const ModelRecord* header = FirstOrNull(1);
    const bool isHex = header != nullptr && header->radix == 16;
    const auto extended = static_cast<std::uint64_t>(std::int64_t{static_cast<std::int32_t>(value)});
    AddLongNumber(isSigned && !isHex ? extended : value, isSigned);
}

void ModelMessage::AddLongNumber(std::uint64_t value, bool isSigned) {
    const ModelRecord* header = FirstOrNull(1);
    std::string text;
    if (header != nullptr && header->radix == 16) {
        for (std::uint64_t left = value; left != 0 || text.empty(); left /= 16)
            text.insert(text.begin(), "0123456789ABCDEF"[left % 16]);
        while (text.size() < header->width) text = "0" + text;
        text = "0x" + text;
    } else {
        text = isSigned ? std::to_string(static_cast<std::int64_t>(value)) : std::to_string(value);
    }
    AddParameter(text);
}

void ModelMessage::SetNumberFormat(unsigned char radix, unsigned char width) {
    const Place place = FirstOf(1);
    if (place.isNone) return;
    At(place).radix = radix;
    At(place).width = width;
}

void ModelMessage::Nest(unsigned int tag, unsigned short domain, int id, const std::string* text) {
    const bool wasEmpty = IsEmpty();
    ModelMessage old(16);
    if (!wasEmpty) old.Swap(*this);
    Add(MakeHeader(domain, id), false);
    if (text != nullptr) Add(MakeText(2, *text), false);
    if (!wasEmpty) NestCopy(old, tag);
}

void ModelMessage::Prepend(const ModelMessage& other) {
    if (IsEmpty()) {
        Assign(other);
        return;
    }
    const ModelRecord* following = other.FirstOrNull(4);
    if (following != nullptr) Prepend(following->nested[0]);
    ModelMessage old(16);
    old.Swap(*this);
    CopyFrom(other, {0, 4, 15});
    NestCopy(old, 4);
}

void ModelMessage::NestCopy(const ModelMessage& source, unsigned int tag) {
    std::uint32_t total = 16;
    for (const ModelBlock& block : source.blocks)
        for (const ModelRecord& record : block.records)
            if (record.tag != 0 && record.tag != 15) total += record.length;
    ModelRecord record;
    record.length = total + 5;
    record.tag = tag;
    record.nested.push_back(ModelMessage(total));
    record.nested[0].CopyFrom(source, {0, 15});
    Add(std::move(record), false);
}

ModelMessage::Links ModelMessage::CopyFrom(const ModelMessage& source,
                                           const std::vector<unsigned int>& excluded) {
    Links links;
    for (const ModelBlock& block : source.blocks) {
        for (const ModelRecord& record : block.records) {
            if (IsIn(record.tag, excluded)) continue;
            const Place place = Add(record, true);
            if (record.tag == 5) links.lower = place;
            if (record.tag == 4) links.same = place;
        }
    }
    return links;
}

ModelMessage ModelMessage::Read(const void* message) {
    ModelMessage model;
    model.blocks.clear();
    for (auto at = static_cast<const unsigned char*>(message); at != nullptr; at = BlockView(at).next) {
        const BlockView view(at);
        ModelBlock block(view.capacity);
        block.free = view.free;
        for (RecordView record = view.First(); record.at != nullptr; record = view.Behind(record))
            block.records.push_back(ReadRecord(record));
        model.blocks.push_back(std::move(block));
    }
    return model;
}

std::string ModelMessage::ToText() const {
    std::string text;
    for (const ModelBlock& block : blocks) {
        text += "[" + std::to_string(block.capacity) + "-" + std::to_string(block.free);
        for (const ModelRecord& record : block.records) {
            text += " " + std::to_string(record.length) + "#" + std::to_string(record.tag);
            if (record.tag == 1 || record.tag == 6) text += ":" + std::to_string(record.domain);
            if (record.tag == 1) text += "," + std::to_string(record.id);
            if (!record.text.empty()) text += "'" + record.text + "'";
            if (!record.nested.empty()) text += record.nested[0].ToText();
        }
        text += "]";
    }
    return text;
}

}  // namespace test
