#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct ModelRecord;

struct ModelBlock {
    std::uint32_t capacity;
    std::uint32_t free;
    std::vector<ModelRecord> records;

    explicit ModelBlock(std::uint32_t size);
    bool operator==(const ModelBlock& other) const;
};

/// A message as plain containers: slow, and independent of the bytes. Never out of memory.
struct ModelMessage {
    struct Place {
        std::size_t block = 0;
        std::size_t record = 0;
        bool isNone = true;
    };
    struct Links {
        Place lower;
        Place same;
    };

    std::vector<ModelBlock> blocks;

    explicit ModelMessage(std::uint32_t size = 100);
    bool operator==(const ModelMessage& other) const;

    ModelRecord& At(const Place& place);
    const ModelRecord& At(const Place& place) const;
    Place FirstOf(unsigned int tag) const;
    Links FindLinks() const;
    bool IsEmpty() const;
    std::vector<std::string> Parameters() const;
    const ModelRecord* FirstOrNull(unsigned int tag) const;
    const ModelRecord* LocalizedOrNull(unsigned short language) const;

    Place Add(ModelRecord record, bool atEnd);
    void Clear();
    void Assign(const ModelMessage& other);
    void Swap(ModelMessage& other);
    void SetDomainAndID(unsigned short domain, int id);
    void SetTemplate(const std::string* text);
    void SetLocalizedText(unsigned short language, const std::string* text);
    void SetMessage(const std::u16string& text, const std::string& narrow);
    void AddParameter(const std::string& text);
    void AddNumber(std::uint32_t value, bool isSigned);
    void AddLongNumber(std::uint64_t value, bool isSigned);
    void SetNumberFormat(unsigned char radix, unsigned char width);
    void Nest(unsigned int tag, unsigned short domain, int id, const std::string* text);
    void Prepend(const ModelMessage& other);
    void NestCopy(const ModelMessage& source, unsigned int tag);
    Links CopyFrom(const ModelMessage& source, const std::vector<unsigned int>& excluded);

    /// The content of a message's bytes.
    static ModelMessage Read(const void* message);

    std::string ToText() const;
};

struct ModelRecord {
    std::uint32_t length = 0;
    unsigned int tag = 0;
    int id = 0;
    unsigned short domain = 0;  // or the language
    unsigned char radix = 10;
    unsigned char width = 0;
    std::string text;
    std::u16string wide;
    std::vector<ModelMessage> nested;  // none or one

    bool operator==(const ModelRecord&) const = default;
};

}  // namespace test
