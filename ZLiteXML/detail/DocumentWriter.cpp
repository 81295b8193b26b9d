#include "DocumentWriter.h"
#include "Characters.h"
#include "Failure.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace ZLiteXML {

namespace {

constexpr std::size_t kBufferSize = 65536;
constexpr std::size_t kDeepestIndentation = 32;  // levels; a deep document would be nothing but spaces

// The ASCII characters that are written as they stand.
using PlainCharacters = std::array<bool, 256>;

constexpr PlainCharacters AllPlainBut(std::string_view special) {
    PlainCharacters plain{};
    for (std::size_t octet = 0; octet < 0x80; ++octet)
        plain[octet] = IsXMLCharacter(static_cast<unsigned int>(octet)) &&
                       special.find(static_cast<char>(octet)) == std::string_view::npos;
    return plain;
}

// A reader turns a bare carriage return into a line feed, and white space in an attribute into spaces.
constexpr PlainCharacters kPlainInText = AllPlainBut("&<>\r");
constexpr PlainCharacters kPlainInAttribute = AllPlainBut("&<>\"\t\n\r");
constexpr PlainCharacters kPlainInComment = AllPlainBut("");

const char* Escape(unsigned int character) {
    switch (character) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\t':
            return "&#9;";
        case '\n':
            return "&#10;";
        default:
            return "&#13;";
    }
}

std::string Hexadecimal(const char* format, unsigned int value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

DocumentWriter::DocumentWriter(std::unique_ptr<Output> output, const WriterOptions& options)
    : mOutput(std::move(output)), mOptions(options) {
    if (mOptions.declaration) mBuffer = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
}

// One event. With the first failure the document is given up.
template <class Step>
void DocumentWriter::Take(Step step) {
    if (mOutput == nullptr)
        ThrowFailure(mHasRoot && mOpen.empty() ? "The document has ended." : "The document was given up.");
    try {
        step();
    } catch (...) {
        mOutput.reset();
        throw;
    }
}

void DocumentWriter::StartElement(const char* name) {
    Take([&] { Start(name); });
}
void DocumentWriter::Attribute(const char* name, const char* value) {
    Take([&] { AddAttribute(name, value); });
}
void DocumentWriter::Characters(const char* text) {
    Take([&] {
        if (*text == 0) return;
        if (mOpen.empty()) ThrowFailure("Text stands outside of the root element.");
        CloseStartTag();
        mOpen.back().hasText = true;
        AppendEscaped(text, kPlainInText);
    });
}
void DocumentWriter::Comment(const char* text) {
    Take([&] { AddComment(text); });
}
void DocumentWriter::EndElement(const char* name) {
    Take([&] { End(name); });
}

void DocumentWriter::Start(const char* name) {
    if (!IsXMLName(name)) ThrowFailure("\"" + std::string(name) + "\" is no name of an element.");
    BeginMarkup();
    mOpen.push_back({mNames.size()});
    mNames.append(name).push_back('\0');
    mAttributes.clear();
    mInStartTag = true;
    mHasRoot = true;
    Append("<");
    Append(name);
}

void DocumentWriter::AddAttribute(const char* name, const char* value) {
    if (!mInStartTag) ThrowFailure("An attribute stands behind the start of its element" + Place() + ".");
    if (!IsXMLName(name)) ThrowFailure("\"" + std::string(name) + "\" is no name of an attribute.");
    if (std::find(mAttributes.begin(), mAttributes.end(), name) != mAttributes.end())
        ThrowFailure("The attribute \"" + std::string(name) + "\" is there twice" + Place() + ".");
    mAttributes.emplace_back(name);
    Append(" ");
    Append(name);
    Append("=\"");
    AppendEscaped(value, kPlainInAttribute);
    Append("\"");
}

void DocumentWriter::AddComment(const char* text) {
    const std::string_view content(text);
    if (content.find("--") != std::string_view::npos || content.ends_with('-'))
        ThrowFailure("A comment holds \"--\" or ends with \"-\".");
    BeginMarkup();
    Append("<!--");
    AppendEscaped(text, kPlainInComment);
    Append("-->");
    if (mOpen.empty() && mOptions.indentation != 0) Append("\n");
}

void DocumentWriter::End(const char* name) {
    if (mOpen.empty()) ThrowFailure("\"" + std::string(name) + "\" ends without a start.");
    if (std::strcmp(name, OpenName()) != 0)
        ThrowFailure("\"" + std::string(name) + "\" ends where \"" + OpenName() + "\" is open.");
    const Element element = mOpen.back();
    if (mInStartTag) {
        mInStartTag = false;
        Append("/>");
    } else {
        if (element.hasMarkup && !element.hasText) BreakLine(mOpen.size() - 1);
        Append("</");
        Append(name);
        Append(">");
    }
    mNames.resize(element.nameStart);
    mOpen.pop_back();
    if (!mOpen.empty()) return;
    if (mOptions.declaration || mOptions.indentation != 0) Append("\n");
    mOutput->Write(mBuffer);
    mOutput->Commit();
    mOutput.reset();
}

void DocumentWriter::CloseStartTag() {
    if (mInStartTag) Append(">");
    mInStartTag = false;
}

// Line breaks go only where an element holds no text, so that they never become part of one.
void DocumentWriter::BeginMarkup() {
    CloseStartTag();
    if (mOpen.empty()) return;
    mOpen.back().hasMarkup = true;
    if (!mOpen.back().hasText) BreakLine(mOpen.size());
}

void DocumentWriter::BreakLine(std::size_t level) {
    if (mOptions.indentation == 0) return;
    mBuffer += '\n';
    mBuffer.append(std::min(level, kDeepestIndentation) * mOptions.indentation, ' ');
}

void DocumentWriter::Append(std::string_view text) {
    mBuffer += text;
    if (mBuffer.size() < kBufferSize) return;
    mOutput->Write(mBuffer);
    mBuffer.clear();
}

void DocumentWriter::AppendEscaped(const char* text, const std::array<bool, 256>& plain) {
    const char* start = text;  // of what is yet to be appended
    for (;;) {
        const auto octet = static_cast<unsigned char>(*text);
        if (plain[octet]) {
            ++text;
            continue;
        }
        if (octet == 0) break;
        const Character character = DecodeCharacter(reinterpret_cast<const unsigned char*>(text));
        if (character.octets == 0)
            ThrowFailure("The text is not UTF-8 at octet 0x" + Hexadecimal("%02X", octet) + Place() + ".");
        if (!IsXMLCharacter(character.value))
            ThrowFailure("XML cannot hold the character U+" + Hexadecimal("%04X", character.value) + Place() +
                         ".");
        if (octet < 0x80) {
            Append({start, text});
            Append(Escape(character.value));
            start = text + 1;
        }
        text += character.octets;
    }
    Append({start, text});
}

std::string DocumentWriter::Place() const {
    return mOpen.empty() ? "" : " in element \"" + std::string(OpenName()) + "\"";
}

namespace {

ZBase::ReturnPtrI<UTF8Writer> MakeWriter(std::unique_ptr<Output> output, const WriterOptions& options) {
    UTF8Writer* writer = new DocumentWriter(std::move(output), options);
    writer->AddRef();
    return ZBase::ReturnPtrI<UTF8Writer>(writer);
}

}  // namespace

ZBase::ReturnPtrI<UTF8Writer> CreateFileWriter(const char* file, const WriterOptions& options) {
    return MakeWriter(std::make_unique<FileOutput>(file), options);
}

ZBase::ReturnPtrI<UTF8Writer> CreateStringWriter(std::string& document, const WriterOptions& options) {
    return MakeWriter(std::make_unique<StringOutput>(document), options);
}

}  // namespace ZLiteXML
