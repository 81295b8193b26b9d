// RecordProbe write DIRECTORY: builds messages from a fixed sequence of numbers by every operation that adds
// to them, and writes their records to DIRECTORY/records and the first of them as documents DIRECTORY/N.xml.
// RecordProbe read DIRECTORY FILE: writes the records of the messages that these documents make to FILE.
// Built for both systems, whose output must be the same octets.

#include <Base/ZBase.h>
#include <Base/messages/detail/Records.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

namespace {

using ZBase::Message;
using namespace ZBase::detail;

constexpr int kMessages = 2000;
constexpr int kDocuments = 50;
constexpr std::uint64_t kMultiplier = 6364136223846793005u;  // Knuth's for 64 bits
constexpr std::uint64_t kIncrement = 1442695040888963407u;

class Numbers {
public:
    std::uint64_t Next() {
        mState = mState * kMultiplier + kIncrement;
        return mState >> 32;
    }
    std::uint64_t Below(std::uint64_t bound) { return Next() % bound; }
    std::uint64_t Wide() {
        const std::uint64_t high = Next();
        return high << 32 | Next();
    }

private:
    std::uint64_t mState = 1;
};

std::string Text(Numbers& numbers) {
    static const char* const kParts[] = {
        "a", "%1", " ", "<&>\"'", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "%9", "long word"};
    std::string text;
    for (std::uint64_t left = numbers.Below(12); left != 0; --left)
        text += kParts[numbers.Below(std::size(kParts))];
    return text;
}

std::basic_string<unsigned short> WideText(Numbers& numbers) {
    static const unsigned short kUnits[] = {'w', 0xE4, 0x20AC, 0xFFFD, ' '};
    std::basic_string<unsigned short> text;
    for (std::uint64_t left = numbers.Below(10); left != 0; --left)
        text += kUnits[numbers.Below(std::size(kUnits))];
    text += 0xD83D;  // a pair
    text += 0xDE00;
    return text;
}

unsigned short Domain(Numbers& numbers) {
    const unsigned short domains[] = {ZBase::MESSAGE_DOMAIN_ERRNO, ZBase::MESSAGE_DOMAIN_WIN32_API,
                                      ZBase::MESSAGE_DOMAIN_WIN32_EXCEPTION, ZBase::MESSAGE_DOMAIN_SERVER,
                                      4711};
    return domains[numbers.Below(std::size(domains))];
}

void AddParameter(Message& message, Numbers& numbers) {
    static void (*const kForms[])(Message&) = {Message::Dec, Message::Hex, Message::WideHex,
                                               Message::WideWideHex};
    const std::uint64_t kind = numbers.Below(10);
    const std::uint64_t value = numbers.Wide();
    switch (kind) {
        case 0:
            message << static_cast<int>(value);
            break;
        case 1:
            message << static_cast<unsigned int>(value);
            break;
        case 2:
            message << static_cast<long>(value);
            break;
        case 3:
            message << static_cast<unsigned long>(value);
            break;
        case 4:
            message << static_cast<long long>(value);
            break;
        case 5:
            message << static_cast<unsigned long long>(value >> value % 64);
            break;
        case 6:
            message << std::bit_cast<double>(value);
            break;
        case 7:
            message << Text(numbers).c_str();
            break;
        case 8:
            message << WideText(numbers).c_str();
            break;
        default:
            message << kForms[value % std::size(kForms)] << (value % 2 == 0);
            break;
    }
}

void Wrap(Message& message, Numbers& numbers) {
    const unsigned short domain = Domain(numbers);
    const int id = static_cast<int>(numbers.Next());
    const std::string text = Text(numbers);
    if (numbers.Below(2) == 0) {
        message.WrapBy(domain, id, text.c_str());
    } else {
        message.PrependBy(domain, id, numbers.Below(4) == 0 ? nullptr : text.c_str());
    }
}

void Change(Message& message, Message& other, Numbers& numbers) {
    static const unsigned short kLanguages[] = {0, 0x407, 0x409, 0x411};
    const unsigned short language = kLanguages[numbers.Below(std::size(kLanguages))];
    switch (numbers.Below(16)) {
        case 0:
            message.SetTemplate(Text(numbers).c_str());
            break;
        case 1:
        case 2:
            message.SetLocalizedText(language, Text(numbers).c_str());
            break;
        case 3:
            message.SetLocalizedText(language, nullptr);
            break;
        case 4:
            message.SetMessage(WideText(numbers).c_str());
            break;
        case 5:
        case 6:
            Wrap(message, numbers);
            break;
        case 7:
            message.PrependBy(other);
            break;
        case 8:
            message = Message(message);
            break;
        case 9:
            message.Swap(other);
            break;
        case 10:
            message.SetDomainAndID(Domain(numbers), static_cast<int>(numbers.Next()));
            break;
        default:
            AddParameter(message, numbers);
            break;
    }
}

// All octets of the records. Those that no operation writes, behind the terminators of texts, are "..".
class Dump {
public:
    std::string Of(const Message& message) {
        AddBlocks(BlockOf(message));
        return std::exchange(mText, {}) + "\n";
    }

private:
    void Add(const void* octets, std::size_t count) {
        static const char* const kDigits = "0123456789abcdef";
        const auto* const first = static_cast<const unsigned char*>(octets);
        for (std::size_t i = 0; i != count; ++i) {
            mText += kDigits[first[i] / 16];
            mText += kDigits[first[i] % 16];
        }
    }

    // The payload up to and with what ends at `end`.
    void AddUpTo(const Record& record, const void* end) {
        const auto written =
            static_cast<std::size_t>(static_cast<const unsigned char*>(end) - record.Payload());
        Add(record.Payload(), written);
        for (std::size_t i = written; i < record.PayloadSize(); ++i) mText += "..";
    }

    // Wide text begins at an even address, so the octet before it depends on where the message is.
    void AddWideText(const Record& record) {
        const unsigned short* text = ZBase::detail::WideText(record);
        for (; *text != 0; ++text) Add(text, sizeof *text);
        mText += "0000..";
    }

    void AddBlocks(const Block& first) {
        const Block* block = nullptr;
        RecordWalker walker(first);
        while (const Record* record = walker.Next()) {
            if (block != &walker.CurrentBlock()) {
                block = &walker.CurrentBlock();
                mText += '[';
                Add(&block->capacity, sizeof block->capacity);
                Add(&block->free, sizeof block->free);
                mText += block->next == nullptr ? " last]" : " ]";
            }
            mText += ' ';
            Add(record, sizeof *record);
            AddPayload(*record);
        }
    }

    void AddPayload(const Record& record) {
        if (record.tag == TAG_SAME_LEVEL || record.tag == TAG_LOWER_LEVEL) {
            mText += '(';
            AddBlocks(record.As<Block>());
            mText += ')';
        } else if (record.tag == TAG_WIDE_MESSAGE) {
            AddWideText(record);
        } else if (record.tag == TAG_LOCALIZED_TEXT) {
            const char* const text = record.As<LocalizedText>().Text();
            AddUpTo(record, text + std::strlen(text) + 1);
        } else if (record.tag != TAG_DELETED) {
            Add(record.Payload(), record.PayloadSize());
        }
    }

    std::string mText;
};

int Write(const std::string& directory) {
    Numbers numbers;
    Dump dump;
    std::ofstream records(directory + "/records", std::ios::binary);
    const auto memory = std::make_unique<unsigned char[]>(3000);
    for (int i = 0; i != kMessages; ++i) {
        const unsigned short domain = Domain(numbers);
        Message other(domain, i, "other");
        Message message(ZBase::MESSAGE_DOMAIN_SERVER, i, Text(numbers).c_str());
        for (std::uint64_t left = numbers.Below(20); left != 0; --left) Change(message, other, numbers);
        records << dump.Of(message);
        const auto size = static_cast<unsigned int>(Message::MIN_SIZE + numbers.Below(2900));
        const Message::PlacementPtr placed(memory.get(), size, message);
        records << dump.Of(*placed);
        if (i < kDocuments)
            ZBase::SerializeToXML(
                message, *ZLiteXML::CreateFileWriter((directory + "/" + std::to_string(i) + ".xml").c_str(),
                                                     {.indentation = static_cast<unsigned int>(i % 3)}));
    }
    return records.flush() ? 0 : 1;
}

int Read(const std::string& directory, const char* output) {
    Dump dump;
    std::ofstream records(output, std::ios::binary);
    for (int i = 0; i != kDocuments; ++i) {
        std::ifstream file(directory + "/" + std::to_string(i) + ".xml", std::ios::binary);
        const std::string document((std::istreambuf_iterator<char>(file)), {});
        Message message;
        const auto reader = ZLiteXML::CreateReader();
        reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
        reader->Read(document.data(), document.size());
        reader->Finish();
        records << dump.Of(message);
    }
    return records.flush() ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
    const std::string what = count > 2 ? arguments[1] : "";
    try {
        if (what == "write" && count == 3) return Write(arguments[2]);
        if (what == "read" && count == 4) return Read(arguments[2], arguments[3]);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    } catch (const Message& failure) {
        std::fprintf(stderr, "%s\n", ZBase::FormatMessage(failure, 0).c_str());
    }
    return 2;
}
