#include "ExpatReader.h"
#include "Failure.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace ZLiteXML {

// From 2.6 on Expat itself delays parsing long tokens, which delays short ones too. An older Expat at run
// time lacks this function.
extern "C" [[gnu::weak]] XML_Bool XML_SetReparseDeferralEnabled(XML_Parser parser, XML_Bool enabled);

namespace {

constexpr std::size_t kTextPiece = 65536;  // bytes

// An incomplete token, such as a tag or a comment, is scanned from its start at each further parse. Up to
// this length that costs little; a longer one is parsed again only when its length has doubled, so all scans
// together are linear.
constexpr std::uint64_t kShortToken = 256;       // bytes
constexpr std::uint64_t kLargestFeed = 1 << 20;  // bytes, unless the token that is open is longer

// By so many bytes the parser tells the encodings apart: by fewer it would decide otherwise.
constexpr std::size_t kFirstBytes = 2;

// The parser counts its bytes in an `int` which it doubles.
constexpr std::uint64_t kLongestToken = (1u << 30) - 2 * kLargestFeed;  // bytes

// The parser's work at each start of an element grows with the attributes declared for it.
constexpr unsigned int kMostDeclaredAttributes = 128;

// The parser's position, by the functions that this Expat does not deprecate.
#if XML_MAJOR_VERSION * 1000 + XML_MINOR_VERSION >= 2009
std::int64_t ByteIndex(XML_Parser parser) {
    return XML_GetCurrentByteIndex64(parser);
}
std::uint64_t LineNumber(XML_Parser parser) {
    return XML_GetCurrentLineNumber64(parser);
}
std::uint64_t ColumnNumber(XML_Parser parser) {
    return XML_GetCurrentColumnNumber64(parser);
}
#else
std::int64_t ByteIndex(XML_Parser parser) {
    return XML_GetCurrentByteIndex(parser);
}
std::uint64_t LineNumber(XML_Parser parser) {
    return XML_GetCurrentLineNumber(parser);
}
std::uint64_t ColumnNumber(XML_Parser parser) {
    return XML_GetCurrentColumnNumber(parser);
}
#endif

// "1." and digits, the only version that this parser is for.
bool IsVersion(const char* version) {
    if (std::strncmp(version, "1.", 2) != 0 || version[2] == 0) return false;
    return std::strspn(version + 2, "0123456789") == std::strlen(version + 2);
}

// A line end that is cut in the middle would be counted as two. So a carriage return waits for the next byte,
// in UTF-16 with its zero, and for both octets of the next unit; it is never the end of a text event.
std::size_t WithoutCutLineEnd(const char* bytes, std::size_t size) {
    if (size >= 1 && bytes[size - 1] == '\r') return size - 1;
    if (size >= 2 && bytes[size - 1] == 0 && bytes[size - 2] == '\r') return size - 2;
    if (size >= 3 && bytes[size - 1] == '\n' && bytes[size - 2] == 0 && bytes[size - 3] == '\r')
        return size - 3;
    return size;
}

}  // namespace

ExpatReader::ExpatReader(const ReaderBounds& bounds) : mParser(XML_ParserCreate(nullptr)), mBounds(bounds) {
    if (mParser == nullptr) throw std::bad_alloc();
    if (&XML_SetReparseDeferralEnabled != nullptr) XML_SetReparseDeferralEnabled(mParser.get(), XML_FALSE);
    SetCallbacks();
    SetRefusals();
}

void ExpatReader::SetCallbacks() {
    XML_Parser parser = mParser.get();
    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser,
        [](void* reader, const char* name, const char** attributes) {
            Self(reader).Guard([&] { Self(reader).Start(name, attributes); });
        },
        [](void* reader, const char* name) { Self(reader).Guard([&] { Self(reader).End(name); }); });
    XML_SetCharacterDataHandler(parser, [](void* reader, const char* text, int size) {
        Self(reader).Guard([&] { Self(reader).AddText(text, static_cast<std::size_t>(size)); });
    });
    XML_SetCommentHandler(parser, [](void* reader, const char* text) {
        Self(reader).Guard([&] {
            Self(reader).TellText();
            if (UTF8EventHandler* handler = Self(reader).Current()) handler->Comment(text);
            if (Self(reader).mBehind) XML_DefaultCurrent(Self(reader).mParser.get());
        });
    });
}

// Refuses declarations that could multiply the document or the work on it, or include another one.
void ExpatReader::SetRefusals() {
    XML_Parser parser = mParser.get();
    XML_SetXmlDeclHandler(parser, [](void* reader, const char* version, const char*, int) {
        if (version == nullptr || IsVersion(version)) return;
        Self(reader).Guard([&] { Self(reader).Refuse("version " + Quoted(version) + " declared"); });
    });
    XML_SetEntityDeclHandler(parser, [](void* reader, const char* name, int, const char*, int, const char*,
                                        const char*, const char*, const char*) {
        Self(reader).Guard([&] { Self(reader).Refuse("entity " + Quoted(name) + " declared"); });
    });
    XML_SetSkippedEntityHandler(parser, [](void* reader, const char* name, int) {
        Self(reader).Guard([&] { Self(reader).Refuse("unknown entity " + Quoted(name)); });
    });
    XML_SetAttlistDeclHandler(
        parser, [](void* reader, const char* element, const char* name, const char*, const char* value, int) {
            Self(reader).Guard([&] {
                if (value != nullptr)
                    Self(reader).Refuse("default of attribute " + Quoted(name) + " declared");
                Self(reader).CountDeclaredAttribute(element);
            });
        });
}

// All attributes of one list have the same pointer, so only the first looks up the element.
void ExpatReader::CountDeclaredAttribute(const char* element) {
    if (element != mpDeclared) {
        mpDeclaredCount = &mDeclaredCounts[element];
        mpDeclared = element;
    }
    if (++*mpDeclaredCount > kMostDeclaredAttributes)
        Refuse("more than " + std::to_string(kMostDeclaredAttributes) + " attributes declared for element " +
               Quoted(element));
}

void ExpatReader::PushHandler(UTF8EventHandler* handler) {
    mListeners.push_back({handler, mDepth});
}

void ExpatReader::Read(const char* bytes, std::size_t size) {
    Feed(bytes, size, EGive::WhatIsWorthIt);
}

void ExpatReader::Finish() {
    Feed(nullptr, 0, EGive::TheEnd);
    mState = EState::Finished;
}

void ExpatReader::Feed(const char* bytes, std::size_t size, EGive give) {
    if (mState == EState::Inside) ThrowFailure("A handler reads on within an event.");
    if (mState == EState::Finished) ThrowFailure("The document has ended.");
    if (mState == EState::GivenUp) ThrowFailure("The document was given up.");
    mState = EState::Inside;
    try {
        const std::uint64_t left = mBounds.size - mReceived;
        const bool isTooMuch = size > left;
        if (isTooMuch) {
            size = static_cast<std::size_t>(left);
            give = EGive::All;
        }
        mReceived += size;
        if (mHeld.empty()) {
            const std::size_t given = Parse(bytes, size, give);
            if (given != size) mHeld.assign(bytes + given, size - given);
        } else {
            mHeld.append(bytes, size);
            mHeld.erase(0, Parse(mHeld.data(), mHeld.size(), give));
        }
        if (isTooMuch) ThrowFailure("The document has more than " + std::to_string(mBounds.size) + " bytes.");
    } catch (...) {
        mState = EState::GivenUp;
        throw;
    }
    mState = EState::Reading;
}

// Passes bytes to the parser. Returns how many of them it took, from the start.
std::size_t ExpatReader::Parse(const char* bytes, std::size_t size, EGive give) {
    for (std::size_t given = 0;;) {
        const std::uint64_t unfinished = Unfinished();
        if (unfinished > kLongestToken)
            Refuse("markup of more than " + std::to_string(kLongestToken) + " bytes");
        const std::size_t rest = size - given;
        const auto feed =
            std::min(std::max(unfinished, kLargestFeed), kLongestToken - unfinished + kLargestFeed);
        auto count = static_cast<std::size_t>(std::min<std::uint64_t>(rest, feed));
        const bool isLast = give == EGive::TheEnd && count == rest;
        if (!isLast) {
            // Before a line end is split off: otherwise that would be repeated each time.
            const bool isWorthIt = unfinished <= kShortToken || count >= unfinished;
            count = WithoutCutLineEnd(bytes + given, count);
            if (count == 0 || (give == EGive::WhatIsWorthIt && !isWorthIt)) return given;
            if (mParsed == 0 && count < kFirstBytes) return given;
        }
        ParsePiece(bytes + given, static_cast<int>(count), isLast);
        given += count;
        if (isLast) return given;
    }
}

void ExpatReader::ParsePiece(const char* bytes, int size, bool isLast) {
    const XML_Status status = XML_Parse(mParser.get(), bytes, size, isLast);
    if (mFailure != nullptr) std::rethrow_exception(std::exchange(mFailure, nullptr));
    if (status != XML_STATUS_OK) {
        const XML_Error error = XML_GetErrorCode(mParser.get());
        if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
        // Text behind the document element is junk to the parser where a piece ends in it; of the whole it
        // may see first that it is no token.
        if (mBehind && (error == XML_ERROR_INVALID_TOKEN || error == XML_ERROR_PARTIAL_CHAR))
            RefuseAt(*mBehind, XML_ErrorString(XML_ERROR_JUNK_AFTER_DOC_ELEMENT));
        Refuse(XML_ErrorString(error));
    }
    mParsed += static_cast<unsigned int>(size);
}

// The bytes that the parser got after the last complete token. Without any it has no position.
std::uint64_t ExpatReader::Unfinished() const {
    const std::int64_t done = ByteIndex(mParser.get());
    return done < 0 ? 0 : mParsed - static_cast<std::uint64_t>(done);
}

void ExpatReader::Refuse(const std::string& reason) const {
    RefuseAt({LineNumber(mParser.get()), ColumnNumber(mParser.get())}, reason);
}

void ExpatReader::RefuseAt(const Place& place, const std::string& reason) {
    ThrowFailure("Line " + std::to_string(place.line) + ", column " + std::to_string(place.column + 1) +
                 ": " + reason + ".");
}

// The end of the document element, white space, a comment or an instruction, which the parser is at.
void ExpatReader::PassMisc(const char* text, std::size_t size) {
    mBehind = {LineNumber(mParser.get()), ColumnNumber(mParser.get())};
    for (std::size_t i = 0; i != size; ++i) {
        const bool isSecondOfTwo = text[i] == '\n' && i != 0 && text[i - 1] == '\r';
        if (text[i] == '\r' || (text[i] == '\n' && !isSecondOfTwo))
            mBehind = {mBehind->line + 1, 0};
        else if (!isSecondOfTwo && (text[i] & 0xC0) != 0x80)
            ++mBehind->column;
    }
}

// Expat may still call back after it was stopped.
template <class Step>
void ExpatReader::Guard(Step step) {
    if (mFailure != nullptr) return;
    try {
        step();
    } catch (...) {
        mFailure = std::current_exception();
        if (mFailure == nullptr) throw;  // a cancelled thread's, which unwinds C code too
        XML_StopParser(mParser.get(), XML_FALSE);
    }
}

void ExpatReader::Start(const char* name, const char** attributes) {
    TellText();
    if (mDepth > mBounds.depth) Refuse("more than " + std::to_string(mBounds.depth) + " levels");
    ++mDepth;
    UTF8EventHandler* handler = Current();  // referenced by its level, which stays until the element ends
    if (handler == nullptr) return;
    handler->StartElement(name);
    for (; *attributes != nullptr; attributes += 2) handler->Attribute(attributes[0], attributes[1]);
}

void ExpatReader::End(const char* name) {
    TellText();
    while (!mListeners.empty() && mListeners.back().depth == mDepth) mListeners.pop_back();
    --mDepth;
    if (UTF8EventHandler* handler = Current()) handler->EndElement(name);
    if (mDepth != 0) return;
    XML_SetDefaultHandlerExpand(mParser.get(), [](void* reader, const char* text, int size) {
        Self(reader).PassMisc(text, static_cast<std::size_t>(size));
    });
    XML_DefaultCurrent(mParser.get());
}

void ExpatReader::AddText(const char* text, std::size_t size) {
    mText.append(text, size);
    if (mText.size() >= kTextPiece) TellText();
}

void ExpatReader::TellText() {
    if (mText.empty()) return;
    if (UTF8EventHandler* handler = Current()) handler->Characters(mText.c_str());
    mText.clear();
}

ZBase::ReturnPtr<UTF8Reader, ZBase::DeleteC<UTF8Reader>> CreateReader(const ReaderBounds& bounds) {
    return ZBase::ReturnPtr<UTF8Reader, ZBase::DeleteC<UTF8Reader>>(new ExpatReader(bounds));
}

}  // namespace ZLiteXML
