#include "MessageDocument.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/SmartPtrI.h>
#include <ZLiteXML/XMLException.h>

#include <vector>

namespace {

/// Sits between a reader and the handlers of a message. A truncated document leaves messages open, and nested
/// ones arrive only at their end; so this ends them.
class Relay final : public ZLiteXML::UTF8EventHandler,
                    public ZSynch::ReferenceCountedImpl<unsigned int>,
                    public ZLiteXML::UTF8Reader {
public:
    explicit Relay(ZLiteXML::UTF8Reader& reader) : mReader(reader) {}

    void PushHandler(ZLiteXML::UTF8EventHandler* handler) override {
        mListeners.push_back({handler, mIsMessage.size()});
    }
    void Read(const char* bytes, std::size_t size) override { mReader.Read(bytes, size); }
    void Finish() override { mReader.Finish(); }

    void StartElement(const char* name) override {
        const std::string_view text(name);
        mIsMessage.push_back(text == "lower_level_message" || text == "same_level_message");
        mStarted = mListeners.size() - 1;
        mListeners.back().handler->StartElement(name);
    }
    void Attribute(const char* name, const char* value) override {
        mListeners[mStarted].handler->Attribute(name, value);
    }
    void Characters(const char* text) override { mListeners.back().handler->Characters(text); }
    void EndElement(const char* name) override {
        Leave();
        mListeners.back().handler->EndElement(name);
    }

    // A truncated field is ignored.
    void EndOpenMessages() {
        while (!mIsMessage.empty()) {
            const bool isMessage = mIsMessage.back();
            Leave();
            if (isMessage) mListeners.back().handler->EndElement("");
        }
    }

private:
    struct Listener {
        ZBase::SmartPtrI<ZLiteXML::UTF8EventHandler> handler;
        std::size_t depth;  // of the element with this content
    };

    void Leave() {
        while (mListeners.back().depth == mIsMessage.size()) mListeners.pop_back();
        mIsMessage.pop_back();
    }

    ZLiteXML::UTF8Reader& mReader;
    std::vector<Listener> mListeners;
    std::vector<bool> mIsMessage;  // the open elements
    std::size_t mStarted = 0;      // the listener that got the last start
};

// Passes all pieces of `pieces` to a reader that fills `message`.
template <class Pieces>
void ReadFrom(Pieces pieces, ZBase::Message& message, const ZLiteXML::ReaderBounds& bounds) {
    const auto reader = ZLiteXML::CreateReader(bounds);
    const ZBase::SmartPtrI<Relay> relay(new Relay(*reader));
    relay->PushHandler(ZBase::GetSerializerFromXML(message, *relay).Get());
    reader->PushHandler(relay.Get());
    try {
        pieces([&](const char* bytes, std::size_t size) {
            reader->Read(bytes, size);
            return true;
        });
        reader->Finish();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        relay->EndOpenMessages();
        throw;
    }
}

}  // namespace

void ReadDocument(const std::string& file, ZBase::Message& message, const ZLiteXML::ReaderBounds& bounds) {
    try {
        ReadFrom([&](const auto& take) { ReadPieces(file, take); }, message, bounds);
    } catch (const ZBase::Message& failure) {
        throw Failure(file + ": " + ZBase::FormatMessage(failure, 0).c_str());
    }
}

void ReadDocumentText(const std::string& document, ZBase::Message& message) {
    ReadFrom([&](const auto& take) { take(document.data(), document.size()); }, message, {});
}

std::string ToDocument(const ZBase::Message& message) {
    std::string document;
    ZBase::SerializeToXML(message,
                          *ZLiteXML::CreateStringWriter(document, {.indentation = 2, .replace = true}));
    return document;
}
