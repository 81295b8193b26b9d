#include "ExpatReader.h"
#include "Failure.h"

#include <algorithm>
#include <new>
#include <utility>

namespace ZLiteXML {

namespace {

constexpr std::size_t kTextPiece = 65536;      // bytes
constexpr std::size_t kLargestFeed = 1 << 20;  // bytes; the parser counts in `int`

// A tag or comment that is not complete is scanned from its start with each further piece. Up to this length
// that costs little; a longer one waits until as much again has come, so that all scans together stay linear.
constexpr std::uint64_t kShortToken = 256;  // bytes

}  // namespace

ExpatReader::ExpatReader(const ReaderBounds& bounds) : mParser(XML_ParserCreate(nullptr)), mBounds(bounds) {
    if (mParser == nullptr) throw std::bad_alloc();
    SetCallbacks();
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
        });
    });
    // What could multiply the document, or bring in another one.
    XML_SetEntityDeclHandler(parser, [](void* reader, const char* name, int, const char*, int, const char*,
                                        const char*, const char*, const char*) {
        Self(reader).Guard([&] { Self(reader).Refuse("entity \"" + std::string(name) + "\" declared"); });
    });
    XML_SetSkippedEntityHandler(parser, [](void* reader, const char* name, int) {
        Self(reader).Guard([&] { Self(reader).Refuse("unknown entity \"" + std::string(name) + "\""); });
    });
    XML_SetAttlistDeclHandler(
        parser, [](void* reader, const char*, const char* name, const char*, const char* value, int) {
            if (value == nullptr) return;
            Self(reader).Guard(
                [&] { Self(reader).Refuse("default of attribute \"" + std::string(name) + "\" declared"); });
        });
}

void ExpatReader::PushHandler(UTF8EventHandler* handler) {
    mListeners.push_back({handler, mDepth});
}

void ExpatReader::Read(const char* bytes, std::size_t size) {
    Feed(bytes, size, false);
}

void ExpatReader::Finish() {
    Feed(nullptr, 0, true);
    mState = EState::Finished;
}

void ExpatReader::Feed(const char* bytes, std::size_t size, bool last) {
    if (mState == EState::Inside) ThrowFailure("A handler reads on within an event.");
    if (mState == EState::Finished) ThrowFailure("The document has ended.");
    if (mState == EState::GivenUp) ThrowFailure("The document was given up.");
    mState = EState::Inside;
    try {
        if (size > mBounds.size - mReceived) Refuse("more than " + std::to_string(mBounds.size) + " bytes");
        mReceived += size;
        if (!last && mHeld.size() + size < Unfinished()) {
            mHeld.append(bytes, size);
        } else if (mHeld.empty()) {
            Parse(bytes, size, last);
        } else {
            mHeld.append(bytes, size);
            Parse(mHeld.data(), mHeld.size(), last);
            mHeld.clear();
        }
    } catch (...) {
        mState = EState::GivenUp;
        throw;
    }
    mState = EState::Reading;
}

void ExpatReader::Parse(const char* bytes, std::size_t size, bool last) {
    do {
        const std::size_t count = std::min(size, kLargestFeed);
        const bool isLast = last && count == size;
        const XML_Status status = XML_Parse(mParser.get(), bytes, static_cast<int>(count), isLast);
        if (mFailure != nullptr) std::rethrow_exception(std::exchange(mFailure, nullptr));
        if (status != XML_STATUS_OK) {
            const XML_Error error = XML_GetErrorCode(mParser.get());
            if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
            Refuse(XML_ErrorString(error));
        }
        mParsed += count;
        bytes += count;
        size -= count;
    } while (size != 0);
}

// Bytes behind the last complete token, when they are many.
std::uint64_t ExpatReader::Unfinished() const {
    const XML_Index done = XML_GetCurrentByteIndex(mParser.get());
    const std::uint64_t unfinished = done < 0 ? mParsed : mParsed - static_cast<std::uint64_t>(done);
    return unfinished > kShortToken ? unfinished : 0;
}

void ExpatReader::Refuse(const std::string& reason) const {
    ThrowFailure("Line " + std::to_string(XML_GetCurrentLineNumber(mParser.get())) + ", column " +
                 std::to_string(XML_GetCurrentColumnNumber(mParser.get()) + 1) + ": " + reason + ".");
}

// Expat may still call back after it was stopped.
template <class Step>
void ExpatReader::Guard(Step step) noexcept {
    if (mFailure != nullptr) return;
    try {
        step();
    } catch (...) {
        mFailure = std::current_exception();
        XML_StopParser(mParser.get(), XML_FALSE);
    }
}

void ExpatReader::Start(const char* name, const char** attributes) {
    TellText();
    if (mDepth > mBounds.depth) Refuse("more than " + std::to_string(mBounds.depth) + " levels");
    ++mDepth;
    UTF8EventHandler* handler = Current();  // held by its place, which stays until the element ends
    if (handler == nullptr) return;
    handler->StartElement(name);
    for (; *attributes != nullptr; attributes += 2) handler->Attribute(attributes[0], attributes[1]);
}

void ExpatReader::End(const char* name) {
    TellText();
    while (!mListeners.empty() && mListeners.back().depth == mDepth) mListeners.pop_back();
    --mDepth;
    if (UTF8EventHandler* handler = Current()) handler->EndElement(name);
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
