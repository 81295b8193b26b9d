#pragma once

#include <Base/messages/MessageXml.h>

#include <algorithm>
#include <string>

namespace test {

inline std::string ToXML(const ZBase::Message& message, const ZLiteXML::WriterOptions& options = {}) {
    std::string document;
    ZBase::SerializeToXML(message, *ZLiteXML::CreateStringWriter(document, options));
    return document;
}

/// The element alone, without a declaration in front.
inline std::string ToElement(const ZBase::Message& message) {
    return ToXML(message, {.declaration = false});
}

/// Reads a document in pieces of so many bytes.
inline void FromXML(const std::string& document, ZBase::Message& message, std::size_t piece = 4096,
                    const ZLiteXML::ReaderBounds& bounds = {}) {
    const auto reader = ZLiteXML::CreateReader(bounds);
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    for (std::size_t at = 0; at < document.size(); at += piece)
        reader->Read(document.data() + at, std::min(piece, document.size() - at));
    reader->Finish();
}

}  // namespace test
