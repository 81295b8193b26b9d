#include "MessageDocument.h"
#include "Console.h"

#include <ZLiteXML/XMLException.h>

namespace {

// Hands all pieces that `pieces` has to a reader that fills `message`.
template <class Pieces>
void ReadFrom(Pieces pieces, ZBase::Message& message) {
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    pieces([&](const char* bytes, std::size_t size) { reader->Read(bytes, size); });
    reader->Finish();
}

}  // namespace

void ReadDocument(const std::string& file, ZBase::Message& message) {
    try {
        ReadFrom([&](const auto& take) { ReadPieces(file, take); }, message);
    } catch (const ZBase::Message& failure) {
        throw Failure(file + ": " + ZBase::FormatMessage(failure, 0).c_str());
    }
}

void ReadDocumentText(const std::string& document, ZBase::Message& message) {
    ReadFrom([&](const auto& take) { take(document.data(), document.size()); }, message);
}

std::string ToDocument(const ZBase::Message& message) {
    std::string document;
    ZBase::SerializeToXML(message,
                          *ZLiteXML::CreateStringWriter(document, {.declaration = true, .indentation = 2}));
    return document;
}
