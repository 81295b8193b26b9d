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
constexpr std::size_t kDeepestIndentation = 32;  // levels; a deeper document would be mostly spaces

// The ASCII characters that need no escape.
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
constexpr PlainCharacters kPlainInComment = AllPlainBut("\r");  // where nothing can be escaped

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::size_t kFewAttributes = 16;

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

// Two hyphens would end the comment.
bool HasCommentEnd(std::string_view text) {
    return text.find("--") != std::string_view::npos || text.ends_with('-');
}

std::string WithoutCommentEnd(const char* text) {
    std::string replaced;
    for (; *text != 0; ++text) {
        if (*text == '-' && (text[1] == '-' || text[1] == 0)) {
            replaced += kReplacement;
        } else {
            replaced += *text;
        }
    }
    return replaced;
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

// One event. After the first failure every event fails.
template <class Step>
void DocumentWriter::Take(Step step) {
    if (mOutput == nullptr) ThrowFailure("The document was given up.");
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
        if (mHasEnded) ThrowFailure("The document has ended.");
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
    if (mHasEnded) ThrowFailure("The document has ended.");
    if (!IsXMLName(name)) ThrowFailure(Quoted(name) + " is no name of an element.");
    BeginMarkup();
    mOpen.emplace_back().nameStart = mNames.size();
    mNames.append(name).push_back('\0');
    mAttributes.clear();
    mFurtherAttributes.clear();
    mInStartTag = true;
    Append("<");
    Append(name);
}

void DocumentWriter::AddAttribute(const char* name, const char* value) {
    if (!mInStartTag) ThrowFailure("An attribute stands behind the start of its element" + Place() + ".");
    if (!IsXMLName(name)) ThrowFailure(Quoted(name) + " is no name of an attribute.");
    NoteAttribute(name);
    Append(" ");
    Append(name);
    Append("=\"");
    AppendEscaped(value, kPlainInAttribute);
    Append("\"");
}

void DocumentWriter::NoteAttribute(const char* name) {
    bool isThere = std::find(mAttributes.begin(), mAttributes.end(), name) != mAttributes.end();
    if (!isThere && mAttributes.size() < kFewAttributes) {
        mAttributes.emplace_back(name);
    } else if (!isThere) {
        isThere = !mFurtherAttributes.insert(name).second;
    }
    if (isThere) ThrowFailure("The attribute " + Quoted(name) + " is there twice" + Place() + ".");
}

void DocumentWriter::AddComment(const char* text) {
    std::string replaced;
    if (HasCommentEnd(text)) {
        if (!mOptions.replace) ThrowFailure("A comment holds \"--\" or ends with \"-\".");
        replaced = WithoutCommentEnd(text);
        text = replaced.c_str();
    }
    BeginMarkup();
    Append("<!--");
    AppendEscaped(text, kPlainInComment);
    Append("-->");
    if (mOpen.empty() && (mOptions.indentation != 0 || (mHasEnded && mOptions.declaration))) Append("\n");
    if (!mHasEnded) return;
    mOutput->Append(mBuffer);
    mBuffer.clear();
}

void DocumentWriter::End(const char* name) {
    if (mHasEnded) ThrowFailure("The document has ended.");
    if (mOpen.empty()) ThrowFailure(Quoted(name) + " ends without a start.");
    if (std::strcmp(name, OpenName()) != 0)
        ThrowFailure(Quoted(name) + " ends where " + Quoted(OpenName()) + " is open.");
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
    mBuffer.clear();
    mHasEnded = true;
}

void DocumentWriter::CloseStartTag() {
    if (mInStartTag) Append(">");
    mInStartTag = false;
}

// Line breaks are written only in elements without text, so that they never become part of it.
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

// A long text is passed on without a copy. Output after the root is passed on as a whole.
void DocumentWriter::Append(std::string_view text) {
    if (mHasEnded || mBuffer.size() + text.size() < kBufferSize) {
        mBuffer += text;
        return;
    }
    mOutput->Write(mBuffer);
    mBuffer.clear();
    if (text.size() < kBufferSize) {
        mBuffer += text;
    } else {
        mOutput->Write(text);
    }
}

void DocumentWriter::AppendEscaped(const char* text, const std::array<bool, 256>& plain) {
    const char* start = text;  // of the text not yet appended
    for (;;) {
        const auto octet = static_cast<unsigned char>(*text);
        if (plain[octet]) {
            ++text;
            continue;
        }
        if (octet == 0) break;
        const auto* bytes = reinterpret_cast<const unsigned char*>(text);
        const Character character = DecodeCharacter(bytes);
        const bool isHeld = character.octets != 0 && IsXMLCharacter(character.value);
        if (isHeld && octet >= 0x80) {
            text += character.octets;
            continue;
        }
        Append({start, text});
        text += character.octets != 0 ? character.octets : OctetsOfBadSequence(bytes);
        start = text;
        if (character.octets == 0) {
            AppendReplacement("The text is not UTF-8 at octet ", "0x%02X", octet);
        } else if (!isHeld) {
            AppendReplacement("XML cannot hold the character ", "U+%04X", character.value);
        } else if (&plain == &kPlainInComment) {
            AppendReplacement("A comment cannot hold the character ", "U+%04X", character.value);
        } else {
            Append(Escape(character.value));
        }
    }
    Append({start, text});
}

void DocumentWriter::AppendReplacement(const char* reason, const char* format, unsigned int value) {
    if (!mOptions.replace) ThrowFailure(reason + Hexadecimal(format, value) + Place() + ".");
    Append(kReplacement);
}

std::string DocumentWriter::Place() const {
    return mOpen.empty() ? "" : " in element " + Quoted(OpenName());
}

namespace {

ZBase::ReturnPtrI<UTF8Writer> MakeWriter(std::unique_ptr<Output> output, const WriterOptions& options) {
    UTF8Writer* writer = new DocumentWriter(std::move(output), options);
    writer->AddRef();
    return ZBase::ReturnPtrI<UTF8Writer>(writer);
}

}  // namespace

ZBase::ReturnPtrI<UTF8Writer> CreateFileWriter(const char* file, const WriterOptions& options) {
    return MakeWriter(CreateFileOutput(file), options);
}

ZBase::ReturnPtrI<UTF8Writer> CreateStringWriter(std::string& document, const WriterOptions& options) {
    return MakeWriter(std::make_unique<StringOutput>(document), options);
}

}  // namespace ZLiteXML
