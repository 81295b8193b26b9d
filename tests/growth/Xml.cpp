#include <Base/ZBase.h>
#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "tests/growth/Inputs.h"
#include "tests/growth/Row.h"
#include "tests/support/HostileDocuments.h"
#include "tests/support/TemporaryFile.h"

namespace test {

namespace {

using ZLiteXML::UTF8Writer;

void ReadInPieces(const std::string& document, std::size_t piece) {
    ZBase::Message message;
    const auto reader = ZLiteXML::CreateReader({.depth = 1'000'000, .size = document.size()});
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    Try([&] {
        for (std::size_t at = 0; at < document.size(); at += piece)
            reader->Read(document.data() + at, std::min(piece, document.size() - at));
        reader->Finish();
    });
}

/// Documents that have a number of levels, whatever their size; levels in number have rows of their own.
constexpr std::string_view kOfOneDepth[] = {"ManyLevelsAgain", "LevelsOfLongNames", "LowerLevels",
                                            "SameLevels", "LargeContentUnderManyLevels"};

void AddDocuments(std::vector<Row>& rows) {
    for (const HostileDocument& document : HostileDocuments()) {
        if (std::ranges::find(kOfOneDepth, document.name) != std::end(kOfOneDepth)) continue;
        for (const bool isWhole : {true, false}) {
            // The declarations of some come before what grows.
            const std::size_t length = std::string_view(document.name).starts_with("Most") ? 12'288 : 2048;
            const std::size_t piece = isWhole ? std::size_t{1} << 40 : length / 8;
            rows.push_back({std::string("reading ") + document.name + (isWhole ? "" : " in pieces"),
                            {"ZBase::GetSerializerFromXML", "ZLiteXML::CreateReader"},
                            length,
                            [&document, piece](std::size_t size) {
                                return Over(document.make(size),
                                            [piece](const std::string& text) { ReadInPieces(text, piece); });
                            }});
        }
    }
}

struct Written {
    const char* name;
    void (*write)(UTF8Writer& writer, std::size_t count);
    std::size_t length;
    std::size_t filed = length;  // the same to a file
};

template <class Content>
void InRoot(UTF8Writer& writer, Content content) {
    writer.StartElement("root");
    content();
    writer.EndElement("root");
}

const Written kWritten[] = {
    {"a long text",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] { writer.Characters(std::string(count, 'x').c_str()); });
     },
     8192},
    {"a text of escapes",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] { writer.Characters(Repeated("<&>\"\r]]>", count).c_str()); });
     },
     8192},
    {"a text of flaws",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] { writer.Characters(Repeated("\x01\xFF\xED\xA0\x80", count).c_str()); });
     },
     8192},
    {"many texts",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] {
             for (std::size_t i = 0; i != count; ++i) writer.Characters("]");
         });
     },
     1024},
    {"a long name",
     [](UTF8Writer& writer, std::size_t count) {
         const std::string name(count, 'n');
         writer.StartElement(name.c_str());
         writer.EndElement(name.c_str());
     },
     8192},
    {"a long attribute",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer,
                [&] { writer.Attribute(std::string(count, 'a').c_str(), Repeated("x\t\"", count).c_str()); });
     },
     8192},
    {"many attributes",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] {
             for (std::size_t i = 0; i != count; ++i) writer.Attribute(Numbered("a", i).c_str(), "v");
         });
     },
     256},
    {"many elements",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] {
             for (std::size_t i = 0; i != count; ++i) {
                 writer.StartElement("e");
                 writer.EndElement("e");
             }
         });
     },
     512},
    {"many levels",
     [](UTF8Writer& writer, std::size_t count) {
         for (std::size_t i = 0; i != count; ++i) writer.StartElement("e");
         for (std::size_t i = 0; i != count; ++i) writer.EndElement("e");
     },
     512},
    {"a long comment",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] { writer.Comment(Repeated("- ", count).c_str()); });
     },
     8192},
    {"many comments",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [&] {
             for (std::size_t i = 0; i != count; ++i) writer.Comment("c");
         });
     },
     512},
    {"many comments behind the root",
     [](UTF8Writer& writer, std::size_t count) {
         InRoot(writer, [] {});
         for (std::size_t i = 0; i != count; ++i) writer.Comment("c");
     },
     512, 16},  // each goes to the disk at once
};

void AddWriting(std::vector<Row>& rows) {
    for (const Written& what : kWritten) {
        for (const unsigned int indentation : {0u, 8u}) {
            rows.push_back({std::string("writing ") + what.name + (indentation == 0 ? "" : ", indented"),
                            {"ZBase::SerializeToXML", "ZLiteXML::CreateStringWriter"},
                            what.length,
                            [&what, indentation](std::size_t count) {
                                return Job([&what, indentation, count] {
                                    std::string document;
                                    const auto writer = ZLiteXML::CreateStringWriter(
                                        document, {.indentation = indentation, .replace = true});
                                    what.write(*writer, count);
                                });
                            }});
        }
        rows.push_back({std::string("writing to a file ") + what.name,
                        {"ZLiteXML::CreateFileWriter"},
                        what.filed,
                        [&what](std::size_t count) {
                            const auto place = std::make_shared<TemporaryFile>();
                            return Job([&what, count, place] {
                                const auto writer =
                                    ZLiteXML::CreateFileWriter(place->Path(), {.replace = true});
                                what.write(*writer, count);
                            });
                        }});
    }
}

}  // namespace

std::vector<Row> XmlRows() {
    std::vector<Row> rows;
    AddDocuments(rows);
    AddWriting(rows);
    return rows;
}

}  // namespace test
