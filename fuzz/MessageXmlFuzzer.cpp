// The input is read as a document, in pieces of a size given by its first byte. An accepted one is a
// well-formed message that writes, and reads back as the same.
//
// For: Base/messages/MessageXml.cpp Base/messages/detail/SerializerFromXML.cpp
// For: Base/messages/detail/TreeBuilder.cpp

#include <Base/messages/MessageXml.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Check.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"

namespace {

using ZBase::Message;

// Small, so that the fuzzer reaches them.
constexpr ZLiteXML::ReaderBounds kBounds{.depth = 60, .size = 4000};

bool Read(const char* bytes, std::size_t size, std::size_t piece, Message& message,
          const ZLiteXML::ReaderBounds& bounds) {
    try {
        const auto reader = ZLiteXML::CreateReader(bounds);
        reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
        for (std::size_t at = 0; at < size; at += piece) reader->Read(bytes + at, std::min(piece, size - at));
        reader->Finish();
    } catch (const Message&) {
        return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    Message message;
    const bool taken =
        Read(reinterpret_cast<const char*>(data) + 1, size - 1, data[0] + 1u, message, kBounds);
    fuzz::Check(test::FindFlaw(&message) == nullptr, "the message is not well-formed");
    Message whole;
    fuzz::Check(Read(reinterpret_cast<const char*>(data) + 1, size - 1, size, whole, kBounds) == taken &&
                    test::DescribeTree(whole) == test::DescribeTree(message),
                "it matters how the document was cut");
    if (!taken) return 0;

    std::string document;
    ZBase::SerializeToXML(message, *ZLiteXML::CreateStringWriter(document));
    Message back;
    fuzz::Check(Read(document.data(), document.size(), document.size(), back, {}),
                "what was written is refused");
    fuzz::Check(test::DescribeTree(back) == test::DescribeTree(message), "the message came back another one");
    return 0;
}
