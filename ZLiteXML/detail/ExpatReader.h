#pragma once

#include <Base/frame/SmartPtrI.h>
#include <ZLiteXML/UTF8Reader.h>

#include <expat.h>

#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ZLiteXML {

/// Expat calls back from C, which exceptions must not pass: an exception of a callback is kept, the parser
/// stopped, and the exception rethrown after Expat has returned.
class ExpatReader final : public UTF8Reader {
public:
    explicit ExpatReader(const ReaderBounds& bounds);

    void PushHandler(UTF8EventHandler* handler) override;
    void Read(const char* bytes, std::size_t size) override;
    void Finish() override;

private:
    struct Listener {
        ZBase::SmartPtrI<UTF8EventHandler> handler;  // null: events are dropped
        std::size_t depth;                           // of the element with this content; 0: the document
    };
    struct FreeParser {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };
    struct Place {
        std::uint64_t line, column;
    };
    enum class EState { Reading, Inside, Finished, GivenUp };
    enum class EGive { WhatIsWorthIt, All, TheEnd };

    void SetCallbacks();
    void SetRefusals();
    void CountDeclaredAttribute(const char* element);
    void Feed(const char* bytes, std::size_t size, EGive give);
    std::size_t Parse(const char* bytes, std::size_t size, EGive give);
    void ParsePiece(const char* bytes, int size, bool isLast);
    std::uint64_t Unfinished() const;
    [[noreturn]] void Refuse(const std::string& reason) const;
    [[noreturn]] static void RefuseAt(const Place& place, const std::string& reason);
    void PassMisc(const char* text, std::size_t size);

    template <class Step>
    void Guard(Step step);
    static ExpatReader& Self(void* reader) { return *static_cast<ExpatReader*>(reader); }
    UTF8EventHandler* Current() const {
        return mListeners.empty() ? nullptr : mListeners.back().handler.Get();
    }
    void Start(const char* name, const char** attributes);
    void End(const char* name);
    void AddText(const char* text, std::size_t size);
    void TellText();

    std::unique_ptr<XML_ParserStruct, FreeParser> mParser;
    ReaderBounds mBounds;
    std::vector<Listener> mListeners;
    std::size_t mDepth = 0;                               // open elements
    std::uint64_t mReceived = 0;                          // bytes
    std::uint64_t mParsed = 0;                            // bytes passed to the parser
    std::string mHeld;                                    // bytes received and not yet passed to it
    std::string mText;                                    // not yet passed to the handler
    std::map<std::string, unsigned int> mDeclaredCounts;  // of attributes, by element
    const char* mpDeclared = nullptr;                     // the last counted element
    unsigned int* mpDeclaredCount = nullptr;              // its count
    std::exception_ptr mFailure;                          // of a callback, to be rethrown
    std::optional<Place> mBehind;  // what is complete of and behind the document element
    EState mState = EState::Reading;
};

}  // namespace ZLiteXML
