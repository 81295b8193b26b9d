#include <Base/messages/MessageTreeText.h>

#include <Base/messages/MessageParameters.h>
#include <Base/messages/MessageWalk.h>
#include <Base/messages/SimpleMessageLocalizer.h>
#include <Base/messages/detail/Records.h>
#include <Base/text/NumberText.h>

#include <algorithm>
#include <string>

namespace ZBase {

using namespace detail;

namespace {

// Deeper levels are not indented further, or a deep tree would be mostly spaces.
constexpr std::size_t kDeepestIndentation = 32;

constexpr const char* kDomainColour = "36";
constexpr const char* kIdColour = "1";
constexpr const char* kParameterColour = "33";
constexpr const char* kLanguageColour = "32";

std::string Hex(int value, std::size_t digits) {
    std::string text = ToHexUpperString(value).c_str();
    if (text.size() < digits) text.insert(0, digits - text.size(), '0');
    return text;
}

// A text on one line, with control characters escaped.
void AppendOneLine(std::string& line, std::string_view text) {
    for (std::size_t i = 0; i != text.size(); ++i) {
        const auto octet = static_cast<unsigned char>(text[i]);
        const bool hasNext = i + 1 != text.size();
        const auto next = static_cast<unsigned char>(hasNext ? text[i + 1] : 0);
        if (octet == '\n') {
            line += "\\n";
        } else if (octet == '\r') {
            line += "\\r";
        } else if (octet < 0x20 || octet == 0x7F) {
            line += "\\x" + Hex(octet, 2);
        } else if (octet == 0xC2 && next >= 0x80 && next < 0xA0) {  // U+0080 to U+009F
            line += "\\x" + Hex(next, 2);
            ++i;
        } else {
            line += text[i];
        }
    }
}

class TreeText {
public:
    explicit TreeText(const TreeOptions& options) : mOptions(options) {}

    void Add(const MessageVisit& visit) {
        const Message& message = *visit.message;
        mText.append(2 * std::min(visit.level, kDeepestIndentation), ' ');
        AddColoured(ToString(message.GetDomain()), kDomainColour);
        mText += ' ';
        AddColoured(ToDecimalString(message.GetID()).c_str(), kIdColour);
        mText += "  ";
        AppendOneLine(mText, TextOf(message).c_str());
        mText += '\n';
        if (mOptions.parameters) AddParameters(visit);
        if (mOptions.texts) AddTexts(visit);
    }

    ReturnString Get() const { return ReturnString(mText.c_str()); }

private:
    void AddColoured(std::string_view text, const char* colour) {
        if (mOptions.colour) mText.append("\033[").append(colour).append("m");
        mText += text;
        if (mOptions.colour) mText += "\033[0m";
    }

    // Without the line end of the system's descriptions.
    std::string TextOf(const Message& message) {
        SimpleMessageLocalizer simple;
        Message::Localizer& localizer = mOptions.localizer == nullptr ? simple : *mOptions.localizer;
        const ReturnString own = message.Localize(localizer, mOptions.language);
        std::string text = own.c_str() == nullptr ? "Unknown." : own.c_str();
        text.erase(text.find_last_not_of("\r\n") + 1);
        return text;
    }

    void AddDetail(const MessageVisit& visit, std::string_view name, const char* colour, const char* value) {
        mText.append(2 * std::min(visit.level, kDeepestIndentation) + 4, ' ');
        AddColoured(name, colour);
        mText += ' ';
        AppendOneLine(mText, value);
        mText += '\n';
    }

    void AddParameters(const MessageVisit& visit) {
        unsigned int number = 0;
        for (const char* parameter : MessageParameters(*visit.message))
            AddDetail(visit, "%" + std::to_string(++number), kParameterColour, parameter);
    }

    void AddTexts(const MessageVisit& visit) {
        RecordWalker walker(BlockOf(*visit.message));
        while (const Record* record = walker.Next()) {
            if (record->tag != TAG_LOCALIZED_TEXT) continue;
            const LocalizedText& text = record->As<LocalizedText>();
            AddDetail(visit, Hex(text.language, 4), kLanguageColour, text.Text());
        }
    }

    const TreeOptions& mOptions;
    std::string mText;
};

}  // namespace

ReturnString FormatTree(const Message& message, const TreeOptions& options) {
    TreeText text(options);
    for (const MessageVisit& visit : MessageWalk(message)) text.Add(visit);
    return text.Get();
}

}  // namespace ZBase
