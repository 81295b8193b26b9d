#include "RecordView.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/messages/detail/Records.h>

#include <algorithm>
#include <vector>

namespace {

using ZBase::Message;
using ZBase::detail::Block;
using ZBase::detail::BlockOf;
using ZBase::detail::Header;
using ZBase::detail::Record;
using ZBase::detail::RecordWalker;
using ZBase::detail::WideText;
using enum ZBase::detail::ETag;

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (std::string_view rest = text;;) {
        const std::size_t end = rest.find('\n');
        quoted += Shown(rest.substr(0, end));
        if (end == std::string_view::npos) return quoted + "\"";
        quoted += "\\n";
        rest.remove_prefix(end + 1);
    }
}

std::string DescribeHeader(const Record& record) {
    const auto& header = record.As<Header>();
    return "id " + std::to_string(header.id) + ", domain " + std::to_string(header.domain) +
           ", numbers in base " + std::to_string(header.radix) + ", width " + std::to_string(header.width);
}

std::string DescribeText(const Record& record) {
    return Quoted(record.Text());
}

std::string DescribeLocalizedText(const Record& record) {
    const auto& text = record.As<ZBase::detail::LocalizedText>();
    return "language " + std::to_string(text.language) + " " + Quoted(text.Text());
}

std::string DescribeWideText(const Record& record) {
    return Quoted(Narrow(WideText(record)));
}

struct Kind {
    ZBase::detail::ETag tag;
    const char* name;
    std::string (*describe)(const Record& record);
};

const Kind kKinds[] = {
    {TAG_DELETED, "deleted", nullptr},
    {TAG_HEADER, "header", DescribeHeader},
    {TAG_TEMPLATE, "template", DescribeText},
    {TAG_PARAMETER, "parameter", DescribeText},
    {TAG_SAME_LEVEL, "same level", nullptr},
    {TAG_LOWER_LEVEL, "lower level", nullptr},
    {TAG_LOCALIZED_TEXT, "localized text", DescribeLocalizedText},
    {TAG_WIDE_MESSAGE, "wide message", DescribeWideText},
};

const Kind& KindOf(unsigned char tag) {
    for (const Kind& kind : kKinds) {
        if (kind.tag == tag) return kind;
    }
    return kKinds[0];
}

std::string Column(std::string text, std::size_t width) {
    if (text.size() < width) text.insert(0, width - text.size(), ' ');
    return text;
}

void PrintBlock(const Block& block, const char* name, const std::string& indent) {
    Print(indent + Styled(name, "2") + " of " + std::to_string(block.capacity) + " bytes, " +
          std::to_string(block.free) + " free\n");
}

void PrintBlocks(const Block& first, const std::string& indent) {
    const Block* block = &first;
    PrintBlock(first, "block", indent);
    RecordWalker walker(first);
    while (const Record* record = walker.Next()) {
        for (; block != &walker.CurrentBlock(); block = block->next)
            PrintBlock(*block->next, "heap block", indent);
        const Kind& kind = KindOf(record->tag);
        Print(indent + Column(std::to_string(walker.PlaceOf(*record).offset), 6) +
              Column(std::to_string(record->length), 6) + "  " + Styled(kind.name, "36") +
              (kind.describe == nullptr ? "" : "  " + kind.describe(*record)) + "\n");
        if (kind.tag == TAG_SAME_LEVEL || kind.tag == TAG_LOWER_LEVEL)
            PrintBlocks(record->As<Block>(), indent + "              ");
    }
}

}  // namespace

std::vector<LocalizedText> LocalizedTexts(const Message& message) {
    std::vector<LocalizedText> texts;
    RecordWalker walker(BlockOf(message));
    while (const Record* record = walker.Next()) {
        if (record->tag != TAG_LOCALIZED_TEXT) continue;
        const auto& text = record->As<ZBase::detail::LocalizedText>();
        texts.push_back({text.language, text.Text()});
    }
    return texts;
}

std::string Indented(std::string_view lines) {
    std::string indented;
    for (std::size_t at = 0; at < lines.size();) {
        const std::size_t end = std::min(lines.find('\n', at), lines.size() - 1) + 1;
        indented += "  ";
        indented += lines.substr(at, end - at);
        at = end;
    }
    return indented;
}

void PrintTree(const Message& message) {
    Print(Indented(ZBase::FormatTree(message, {.colour = IsColoured()}).c_str()));
}

void PrintRecords(const Message& message) {
    PrintBlocks(BlockOf(message), "  ");
}
