#pragma once

#include <Base/frame/DeleteC.h>
#include <Base/frame/ReturnPtr.h>
#include <ZLiteXML/UTF8EventHandler.h>

#include <cstddef>
#include <cstdint>

namespace ZLiteXML {

/// Reads one document piece by piece, and calls handlers with its events.
class ZLITEXML_INTERFACE UTF8Reader {
public:
    /// Passes the following events to `handler`, on which it takes a reference: before the document all of
    /// it, within `StartElement` the content of that element. The element's attributes and its end go to the
    /// handler that got its start. Null: the events are dropped.
    virtual void PushHandler(UTF8EventHandler* handler) = 0;

    /// Parses the next piece, cut anywhere, and calls handlers for what is complete; events after a long
    /// token that came in small pieces may be delayed until as much again has come, or until `Finish`. Throws
    /// `XMLException` when the document is not well-formed, exceeds a limit, declares entities, default
    /// attributes or more than 128 attributes of one element, or has one tag or comment of about 1 GiB;
    /// whatever a handler throws; and `std::bad_alloc`. After that every further call throws. The events, and
    /// the reason and line of a refusal, do not depend on the cuts, but for the pieces of a long text.
    virtual void Read(const char* bytes, std::size_t size) = 0;

    /// Ends the document; throws as `Read` does, also for an incomplete document, after the events of its
    /// complete part.
    virtual void Finish() = 0;

    virtual ~UTF8Reader() = default;
};

/// The limits of a document; a larger one is refused.
struct ReaderBounds {
    std::size_t depth = 10'000;  // elements around another; a list of n errors is n levels deep
    std::uint64_t size = std::uint64_t{64} << 20;  // bytes of the document
};

/// A reader of UTF-8, UTF-16, ISO-8859-1 and US-ASCII, as the document declares.
ZLITEXML_API ZBase::ReturnPtr<UTF8Reader, ZBase::DeleteC<UTF8Reader>> CreateReader(
    const ReaderBounds& bounds = {});

}  // namespace ZLiteXML
