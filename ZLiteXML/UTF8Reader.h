#pragma once

#include <Base/frame/DeleteC.h>
#include <Base/frame/ReturnPtr.h>
#include <ZLiteXML/UTF8EventHandler.h>

#include <cstddef>
#include <cstdint>

namespace ZLiteXML {

/// Reads one document that comes piece by piece, and tells it to handlers.
class ZLITEXML_INTERFACE UTF8Reader {
public:
    /// Sends what follows to `handler`, on which it takes a reference: before the document the whole of it,
    /// within `StartElement` the content of that element. The element's attributes and its end go to the
    /// handler that was told of its start. Null: nobody is told.
    virtual void PushHandler(UTF8EventHandler* handler) = 0;

    /// Takes the next piece, cut anywhere, and tells what is complete; what stands behind a long token that
    /// came in small pieces may wait until as much again has come, or for `Finish`. Throws `XMLException`
    /// when the document is not well-formed, passes a bound, declares entities, defaults of attributes or
    /// more than 128 attributes of one element, or has one tag or comment of about 1 GiB; whatever a handler
    /// throws; and `std::bad_alloc`. After that every further call throws. What is told, and the reason and
    /// line of a refusal, do not hang on the cuts.
    virtual void Read(const char* bytes, std::size_t size) = 0;

    /// Ends the document; throws as `Read` does, also for a document that is not complete, of which it first
    /// tells what is.
    virtual void Finish() = 0;

    virtual ~UTF8Reader() = default;
};

/// What a document may be at most; one that is more is refused.
struct ReaderBounds {
    std::size_t depth = 10'000;  // elements around another; a list of n errors is n levels deep
    std::uint64_t size = std::uint64_t{64} << 20;  // bytes of the document
};

/// A reader of UTF-8, UTF-16, ISO-8859-1 and US-ASCII, as the document declares.
ZLITEXML_API ZBase::ReturnPtr<UTF8Reader, ZBase::DeleteC<UTF8Reader>> CreateReader(
    const ReaderBounds& bounds = {});

}  // namespace ZLiteXML
