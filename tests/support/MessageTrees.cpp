#include "tests/support/MessageTrees.h"

#include <Base/messages/MessageCursor.h>

#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "tests/support/MessageBytes.h"

namespace test {

namespace {

constexpr unsigned int kHeader = 1;
constexpr unsigned int kTemplate = 2;
constexpr unsigned int kParameter = 3;
constexpr unsigned int kSameLevel = 4;
constexpr unsigned int kLowerLevel = 5;
constexpr unsigned int kText = 6;

struct Fields {
    std::string own;
    const unsigned char* lower = nullptr;
    const unsigned char* same = nullptr;
};

std::string TextAt(const unsigned char* at) {
    return reinterpret_cast<const char*>(at);
}

Fields ReadFields(const unsigned char* message, unsigned short (*domainOf)(unsigned short)) {
    Fields fields;
    std::string parameters;
    std::map<unsigned int, std::string> texts;
    for (const unsigned char* at = message; at != nullptr; at = BlockView(at).next) {
        const BlockView block(at);
        for (RecordView record = block.First(); record.at != nullptr; record = block.Behind(record)) {
            const unsigned char* payload = record.Payload();
            if (record.tag == kHeader) {
                const std::uint16_t domain = Load16(payload + 4);
                fields.own += " " + std::to_string(domainOf == nullptr ? domain : domainOf(domain)) + "/" +
                              std::to_string(static_cast<int>(Load32(payload)));
            }
            if (record.tag == kTemplate) texts.try_emplace(0x10000, TextAt(payload));
            if (record.tag == kParameter) parameters += " <" + TextAt(payload) + ">";
            if (record.tag == kText) texts.try_emplace(Load16(payload), TextAt(payload + 2));
            if (fields.same != nullptr && fields.lower != nullptr)
                continue;  // the later one, until both are there
            if (record.tag == kSameLevel) fields.same = payload;
            if (record.tag == kLowerLevel) fields.lower = payload;
        }
    }
    fields.own += parameters;
    for (const auto& [language, text] : texts) fields.own += " " + std::to_string(language) + "=" + text;
    return fields;
}

using Random = std::mt19937;

unsigned int Below(Random& random, unsigned int limit) {
    return static_cast<unsigned int>(random() % limit);
}

void AppendUtf8(std::string& text, unsigned int value) {
    if (value < 0x80) {
        text += static_cast<char>(value);
    } else if (value < 0x800) {
        text += {static_cast<char>(0xC0 | value >> 6), static_cast<char>(0x80 | (value & 0x3F))};
    } else if (value < 0x10000) {
        text += {static_cast<char>(0xE0 | value >> 12), static_cast<char>(0x80 | (value >> 6 & 0x3F)),
                 static_cast<char>(0x80 | (value & 0x3F))};
    } else {
        text += {static_cast<char>(0xF0 | value >> 18), static_cast<char>(0x80 | (value >> 12 & 0x3F)),
                 static_cast<char>(0x80 | (value >> 6 & 0x3F)), static_cast<char>(0x80 | (value & 0x3F))};
    }
}

unsigned int RandomCharacter(Random& random) {
    const unsigned int special[] = {'<',  '>',  '&',    '"',    '\'',   ']',    '\t',   '\n',    '\r',    ' ',
                                    0x7F, 0x85, 0x2028, 0xD7FF, 0xE000, 0xFEFF, 0xFFFD, 0x10000, 0x10FFFF};
    switch (Below(random, 6)) {
        case 0:
            return special[Below(random, std::size(special))];
        case 1:
            return 0x80 + Below(random, 0xD800 - 0x80);
        case 2:
            return 0x10000 + Below(random, 0x100000);
        default:
            return 0x20 + Below(random, 0x5F);
    }
}

std::string RandomText(Random& random) {
    const unsigned int lengths[] = {0, 1, 5, 20, 60, 300};
    std::string text;
    for (unsigned int left = lengths[Below(random, std::size(lengths))]; left != 0; --left)
        AppendUtf8(text, RandomCharacter(random));
    return text;
}

using Form = std::string (*)(const std::string& octets);

// Bad sequences more often than by chance.
std::string RandomOctets(Random& random) {
    const char* const parts[] = {"\x1B[1m",      "\xE9",
                                 "\xE2\x82",     "\xE2\x82\xAC",
                                 "\xED\xA0\x80", "\xEF\xBF\xBE",
                                 "\xF0\x9F\x98", "\xF0\x8F\xBF\xBD",
                                 "\xC0\x80",     "\xFC\x80\x80",
                                 "\r",           "]]>",
                                 "<&\"",         " ",
                                 "text"};
    std::string text;
    for (unsigned int left = Below(random, 12); left != 0; --left) {
        if (Below(random, 2) == 0) {
            text += static_cast<char>(1 + Below(random, 255));
        } else {
            text += parts[Below(random, std::size(parts))];
        }
    }
    return text;
}

std::string TextFor(Random& random, Form form) {
    return form == nullptr ? RandomText(random) : form(RandomOctets(random));
}

void AddAtRandom(ZBase::Message& message, Random& random, Form form) {
    const unsigned short domains[] = {0, 10, 11, 12, 13, 14, 15, 100, 101, 200, 210, 211, 212, 213, 300};
    const unsigned int languages[] = {0, 9, 1031, 1033, 0x7FFF, 0xFFFF};
    switch (Below(random, 7)) {
        case 0:
            message.SetDomainAndID(domains[Below(random, std::size(domains))], static_cast<int>(random()));
            break;
        case 1:
            message.SetTemplate(TextFor(random, form).c_str());
            break;
        case 2:
        case 3:
            message << TextFor(random, form).c_str();
            break;
        case 4:
            message << ZBase::Message::Hex << static_cast<unsigned int>(random());
            break;
        case 5:
            if (form == nullptr) message.GetMessage();  // leaves a wide text
            break;
        default:
            message.SetLocalizedText(
                static_cast<unsigned short>(languages[Below(random, std::size(languages))]),
                TextFor(random, form).c_str());
    }
}

}  // namespace

std::string DescribeTree(const ZBase::Message& message, unsigned short (*domainOf)(unsigned short)) {
    struct Pending {
        const unsigned char* message;
        std::string place;
    };
    std::string description;
    std::vector<Pending> pending{{reinterpret_cast<const unsigned char*>(&message), "root"}};
    for (std::size_t number = 0; !pending.empty(); ++number) {
        const Pending next = pending.back();
        pending.pop_back();
        const Fields fields = ReadFields(next.message, domainOf);
        description += std::to_string(number) + " " + next.place + ":" + fields.own + "\n";
        if (fields.same != nullptr) pending.push_back({fields.same, "behind " + std::to_string(number)});
        if (fields.lower != nullptr) pending.push_back({fields.lower, "below " + std::to_string(number)});
    }
    return description;
}

void FillAtRandom(ZBase::Message& message, unsigned int seed) {
    FillWithOctets(message, seed, nullptr);
}

void FillWithOctets(ZBase::Message& message, unsigned int seed, Form form) {
    constexpr std::size_t deepest = 40;
    struct Taken {
        bool lower = false;
        bool same = false;
    };
    Random random(seed);
    ZBase::MessageCursor cursor(message);
    std::vector<Taken> taken(1);
    for (unsigned int step = 50 + Below(random, 400); step != 0; --step) {
        const unsigned int choice = Below(random, 10);
        if (choice == 0 && taken.size() < deepest && !taken.back().lower) {
            taken.back().lower = true;
            cursor.GoToLowerLevelMessage(true);
            taken.emplace_back();
        } else if (choice == 1 && taken.size() < deepest && !taken.back().same) {
            taken.back().same = true;
            cursor.GoToSameLevelMessage(true);
            taken.emplace_back();
        } else if (choice == 2 && taken.size() > 1) {
            cursor.GoToParent();
            taken.pop_back();
        } else {
            AddAtRandom(cursor.GetCurrentMessage(), random, form);
        }
    }
    while (cursor.GoToParent()) {
    }
}

}  // namespace test
