#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/XMLException.h>

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/frame/SmartPtrI.h>
#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/support/Allocations.h"
#include "tests/support/VirtualOrder.h"

namespace {

using ZLiteXML::UTF8EventHandler;
using ZLiteXML::UTF8Reader;

// Records its events, each with its name.
class Recorder : public UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    Recorder(std::string& log, const char* name) : mLog(log), mName(name) {}

    void StartElement(const char* name) override { Note("<", name); }
    void Attribute(const char* name, const char* value) override {
        Note("@", (std::string(name) + "=" + value).c_str());
    }
    void Characters(const char* text) override { Note("", text); }
    void Comment(const char* text) override { Note("!", text); }
    void EndElement(const char* name) override { Note(">", name); }

protected:
    void Note(const char* kind, const char* text) { mLog += mName + kind + text + " "; }

    std::string& mLog;
    std::string mName;
};

void ReadAll(UTF8Reader& reader, const std::string& document, std::size_t piece = 1 << 20) {
    for (std::size_t at = 0; at < document.size(); at += piece)
        reader.Read(document.data() + at, std::min(piece, document.size() - at));
    reader.Finish();
}

std::string Events(const std::string& document, std::size_t piece = 1 << 20,
                   const ZLiteXML::ReaderBounds& bounds = {}) {
    std::string log;
    const auto reader = ZLiteXML::CreateReader(bounds);
    reader->PushHandler(new Recorder(log, ""));
    ReadAll(*reader, document, piece);
    return log;
}

// The reader's failure for a document that it refuses.
std::string Refusal(const std::string& document, const ZLiteXML::ReaderBounds& bounds = {}) {
    try {
        Events(document, 1 << 20, bounds);
    } catch (const ZLiteXML::XMLException& failure) {
        return ZBase::FormatMessage(failure, 0).c_str();
    }
    return "nothing";
}

TEST(ReaderInterfaces, OperationsComeInTheirOrder) {
    EXPECT_EQ(test::PlaceInTable(&UTF8Reader::PushHandler), 0u);
    const std::size_t first = test::PlaceInTable(&UTF8EventHandler::StartElement);
    EXPECT_EQ(test::PlaceInTable(&UTF8EventHandler::Attribute), first + 1);
    EXPECT_EQ(test::PlaceInTable(&UTF8EventHandler::Characters), first + 2);
    EXPECT_EQ(test::PlaceInTable(&UTF8EventHandler::Comment), first + 3);
    EXPECT_EQ(test::PlaceInTable(&UTF8EventHandler::EndElement), first + 4);
}

TEST(Reader, TellsElementsAttributesTextsAndComments) {
    EXPECT_EQ(Events("<?xml version='1.0'?><!--x--><a b='1' "
                     "c='&lt;&#65;'>t&amp;u<d/><![CDATA[<v>]]><?pi?><!--y--></a>"),
              "!x <a @b=1 @c=<A t&u <d >d <v> !y >a ");
}

TEST(Reader, PiecesMakeNoDifference) {
    const std::string document =
        "\xEF\xBB\xBF<?xml version='1.0' encoding='UTF-8'?>\n<a b='\xC3\xA9'>\xE2\x82\xAC<c/>\r\n<!-- c "
        "--></a>\n";
    const std::string expected = "<a @b=\xC3\xA9 \xE2\x82\xAC <c >c \n ! c  >a ";
    for (std::size_t piece = 1; piece <= document.size(); ++piece)
        EXPECT_EQ(Events(document, piece), expected) << piece;
}

TEST(Reader, TellsWhatIsCompleteAtOnce) {
    std::string log;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Recorder(log, ""));
    for (const char octet : std::string("<a><b>t</b>")) reader->Read(&octet, 1);
    EXPECT_EQ(log, "<a <b t >b ");
}

TEST(Reader, EncodingsAreRecognised) {
    const std::string expected = "<a @b=\xC3\xA9 \xC3\xA9 >a ";
    EXPECT_EQ(Events("<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xE9'>\xE9</a>"), expected);
    for (const bool bigEndian : {false, true}) {
        for (const bool mark : {false, true}) {
            std::string wide;
            for (const unsigned short unit :
                 std::u16string(mark ? u"\uFEFF" : u"") + u"<?xml version='1.0'?><a b='\u00E9'>\u00E9</a>") {
                const char low = static_cast<char>(unit & 0xFF);
                const char high = static_cast<char>(unit >> 8);
                wide += bigEndian ? high : low;
                wide += bigEndian ? low : high;
            }
            EXPECT_EQ(Events(wide), expected) << bigEndian << mark;
            EXPECT_EQ(Events(wide, 1), expected);
        }
    }
}

TEST(Reader, WrongEncodingsAreRefused) {
    EXPECT_NE(Refusal("<a>\xE9</a>"), "nothing");
    EXPECT_NE(Refusal("<a>\xED\xA0\x80</a>"), "nothing");
    EXPECT_NE(Refusal("<a>\xC0\x80</a>"), "nothing");
    EXPECT_NE(Refusal("<?xml version='1.0' encoding='x-unknown'?><a/>"), "nothing");
    EXPECT_NE(Refusal("<?xml version='1.0' encoding='UTF-16'?><a/>"), "nothing");
    EXPECT_NE(Refusal("<?xml version='1.0' encoding='US-ASCII'?><a>\xC3\xA9</a>"), "nothing");
    EXPECT_NE(Refusal(std::string("\xFF\xFE\x3C", 3)), "nothing");
    EXPECT_NE(Refusal(std::string("<a>\0</a>", 8)), "nothing");
}

TEST(Reader, DocumentsThatAreNotWellFormedAreRefusedWithTheirPlace) {
    EXPECT_EQ(Refusal("<a>\n  <b></c></a>"), "Line 2, column 8: mismatched tag.");
    EXPECT_EQ(Refusal(""), "Line 1, column 1: no element found.");
    for (const char* document :
         {"<a>", "<a", "a", "<a/><b/>", "<a></a>x", "<a b='1' b='2'/>", "<a b=1/>", "<a>&x;</a>",
          "<a>&#0;</a>", "<a>&#1;</a>", "<a>\x01</a>", "<a>&#xFFFE;</a>", "<1/>", "<a><!-- -- --></a>"})
        EXPECT_NE(Refusal(document), "nothing") << document;
}

TEST(Reader, PushedHandlerTakesTheContentOfTheElement) {
    class Pusher final : public Recorder {
    public:
        Pusher(std::string& log, UTF8Reader& reader) : Recorder(log, "1"), mReader(reader) {}
        void StartElement(const char* name) override {
            Recorder::StartElement(name);
            if (std::string(name) == "push") mReader.PushHandler(new Recorder(mLog, "2"));
            if (std::string(name) == "hide") mReader.PushHandler(nullptr);
        }
        UTF8Reader& mReader;
    };
    std::string log;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Pusher(log, *reader));
    ReadAll(*reader, "<a>x<push b='1'>y<c d='2'/><push/><!--!--></push>z<hide>q<e f='3'/></hide><push/></a>");
    EXPECT_EQ(
        log,
        "1<a 1x 1<push 1@b=1 2y 2<c 2@d=2 2>c 2<push 2>push 2!! 1>push 1z 1<hide 1>hide 1<push 1>push 1>a ");
}

TEST(Reader, HoldsItsHandlersAndLetsThemGo) {
    class Counted final : public UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
    public:
        explicit Counted(int& living) : mLiving(living) { ++mLiving; }
        ~Counted() override { --mLiving; }
        int& mLiving;
    };
    int living = 0;
    {
        const auto reader = ZLiteXML::CreateReader();
        reader->PushHandler(new Counted(living));
        const ZBase::SmartPtrI<Counted> other(new Counted(living));
        reader->PushHandler(other.Get());
        reader->Read("<a>", 3);
        EXPECT_EQ(living, 2);
    }
    EXPECT_EQ(living, 0);
}

// Throws at the event of this number.
class Thrower final : public UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit Thrower(int& left) : mLeft(left) {}
    void StartElement(const char*) override { Count(); }
    void Attribute(const char*, const char*) override { Count(); }
    void Characters(const char*) override { Count(); }
    void Comment(const char*) override { Count(); }
    void EndElement(const char*) override { Count(); }

private:
    void Count() {
        if (mLeft-- == 0) throw std::out_of_range("event");
        EXPECT_GE(mLeft, -1) << "no event may follow";
    }
    int& mLeft;
};

TEST(Reader, ExceptionOfAHandlerArrivesAndEndsTheReading) {
    for (int event = 0; event < 9; ++event) {
        int left = event;
        const auto reader = ZLiteXML::CreateReader();
        reader->PushHandler(new Thrower(left));
        EXPECT_THROW(ReadAll(*reader, "<a b='1' c='2'>t<d/><!--x-->u</a>"), std::out_of_range) << event;
        EXPECT_EQ(left, -1);
        EXPECT_THROW(reader->Read("x", 1), ZLiteXML::XMLException);
        EXPECT_THROW(reader->Finish(), ZLiteXML::XMLException);
        EXPECT_EQ(left, -1);
    }
}

TEST(Reader, HandlerMayNotReadOn) {
    class Recursive final : public UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
    public:
        explicit Recursive(UTF8Reader& reader) : mReader(reader) {}
        void StartElement(const char*) override { mReader.Read("<b/>", 4); }
        UTF8Reader& mReader;
    };
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Recursive(*reader));
    EXPECT_THROW(reader->Read("<a>", 3), ZLiteXML::XMLException);
}

TEST(Reader, NothingFollowsTheEnd) {
    const auto reader = ZLiteXML::CreateReader();
    ReadAll(*reader, "<a/>");
    EXPECT_THROW(reader->Read(" ", 1), ZLiteXML::XMLException);
    EXPECT_THROW(reader->Finish(), ZLiteXML::XMLException);
}

std::string Nested(std::size_t levels) {
    std::string document;
    for (std::size_t level = 0; level < levels; ++level) document += "<a>";
    for (std::size_t level = 0; level < levels; ++level) document += "</a>";
    return document;
}

TEST(Reader, DepthIsCountedInElementsAround) {
    EXPECT_EQ(Refusal(Nested(4), {.depth = 3}), "nothing");
    EXPECT_EQ(Refusal(Nested(5), {.depth = 3}), "Line 1, column 13: more than 3 levels.");
    EXPECT_EQ(Refusal("<a/>", {.depth = 0}), "nothing");
    EXPECT_NE(Refusal("<a><b/></a>", {.depth = 0}), "nothing");
    EXPECT_EQ(Refusal(Nested(10001)), "nothing");
    EXPECT_NE(Refusal(Nested(10002)).find("more than 10000 levels"), std::string::npos);
}

TEST(Reader, SizeIsCountedInBytes) {
    EXPECT_EQ(Refusal("<abc/>", {.size = 6}), "nothing");
    EXPECT_EQ(Refusal("<abc/>", {.size = 5}), "The document has more than 5 bytes.");
    const std::string megabyte(1 << 20, ' ');
    const auto reader = ZLiteXML::CreateReader();
    for (int count = 0; count < 64; ++count) reader->Read(megabyte.data(), megabyte.size());
    EXPECT_THROW(reader->Read(" ", 1), ZLiteXML::XMLException);
}

TEST(Reader, DeclaredEntitiesAreRefused) {
    for (const char* declared :
         {"<!ENTITY a 'b'>", "<!ENTITY a SYSTEM 'file:///etc/passwd'>", "<!ENTITY % a 'b'>",
          "<!ENTITY % a SYSTEM 'http://localhost/'> %a;", "<!ENTITY a PUBLIC 'x' 'y'>",
          "<!NOTATION n SYSTEM 'n'><!ENTITY a SYSTEM 'x' NDATA n>"})
        EXPECT_NE(Refusal("<!DOCTYPE m [" + std::string(declared) + "]><m/>").find("entity \"a\" declared"),
                  std::string::npos)
            << declared;
    EXPECT_NE(Refusal("<!DOCTYPE m SYSTEM 'x'><m>&a;</m>").find("unknown entity \"a\""), std::string::npos);
    EXPECT_NE(
        Refusal("<!DOCTYPE m [<!ATTLIST m a CDATA 'x'>]><m/>").find("default of attribute \"a\" declared"),
        std::string::npos);
}

// Events within the limit arrive, and a flaw there is reported as itself, whatever the pieces.
TEST(Reader, DocumentBeyondItsBoundIsReadUpToIt) {
    for (const std::size_t piece : {1, 3, 100}) {
        std::string log;
        const auto reader = ZLiteXML::CreateReader({.size = 10});
        reader->PushHandler(new Recorder(log, ""));
        EXPECT_THROW(ReadAll(*reader, "<a><b/></a></a>", piece), ZLiteXML::XMLException);
        EXPECT_EQ(log, "<a <b >b ");
    }
    EXPECT_EQ(Refusal("<a></b>    ", {.size = 10}), "Line 1, column 6: mismatched tag.");
}

std::string Declared(int attributes) {
    std::string document = "<!DOCTYPE e [<!ATTLIST e";
    for (int number = 0; number < attributes; ++number)
        document += " a" + std::to_string(number) + " CDATA #IMPLIED";
    return document + "><!ATTLIST f a CDATA #IMPLIED b CDATA #IMPLIED>]><e/>";
}

// By one octet it can't be told from UTF-8.
TEST(Reader, EncodingIsToldByTwoOctetsHoweverTheyAreCut) {
    const std::string little("\n\0<\0a\0/\0>\0", 10);
    for (const std::size_t piece : {1u, 2u, 3u, 100u}) EXPECT_EQ(Events(little, piece), "<a >a ") << piece;
    const std::string none("a\0\3", 3);
    const auto refusal = [&](std::size_t piece) -> std::string {
        try {
            Events(none, piece);
        } catch (const ZLiteXML::XMLException& failure) {
            return ZBase::FormatMessage(failure, 0).c_str();
        }
        return "nothing";
    };
    EXPECT_EQ(refusal(1), refusal(100));
    EXPECT_EQ(Events("<a/>", 1), "<a >a ");
    EXPECT_NE(Refusal("a"), "nothing");
}

// A carriage return may be half of a line end, so it waits for the next byte.
TEST(Reader, CarriageReturnsInALongTokenKeepNothingBack) {
    const std::string document =
        "<a><!--" + std::string(2 << 20, '\r') + "--><b/>" + std::string(3 << 20, ' ');
    std::string log;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Recorder(log, ""));
    for (std::size_t at = 0; at < document.size(); at += 4096)
        reader->Read(document.data() + at, std::min<std::size_t>(4096, document.size() - at));
    EXPECT_NE(log.find("<b "), std::string::npos);
}

// So it does in UTF-16, with its zero.
TEST(Reader, LineEndOfTwoUnitsIsOneWhereverItIsCut) {
    std::string document = "\xFF\xFE";
    for (const char unit : std::string("<a>\r\n</a>\r\n\r\nx")) document.append({unit, '\0'});
    for (std::size_t piece = 1; piece <= document.size(); ++piece) {
        std::string refusal;
        try {
            ReadAll(*ZLiteXML::CreateReader(), document, piece);
        } catch (const ZLiteXML::XMLException& failure) {
            refusal = ZBase::FormatMessage(failure, 0).c_str();
        }
        EXPECT_EQ(refusal, "Line 4, column 1: junk after document element.") << "in pieces of " << piece;
    }
}

TEST(Reader, DeclaredAttributesAreCountedForEachElement) {
    EXPECT_EQ(Refusal(Declared(128)), "nothing");
    EXPECT_NE(Refusal(Declared(129)).find("more than 128 attributes declared for element \"e\"."),
              std::string::npos);
    std::string oneByOne = "<!DOCTYPE e [";
    for (int number = 0; number < 129; ++number)
        oneByOne += "<!ATTLIST e a ID #IMPLIED><!ATTLIST f a ID #IMPLIED>";
    EXPECT_NE(Refusal(oneByOne + "]><e/>"), "nothing");
}

TEST(Reader, VersionIsOnePointSomething) {
    for (const std::string version : {"one", "", "1", "1.", "2.0", "1.0a", "1.x", " 1.0"})
        EXPECT_NE(Refusal("<?xml version='" + version + "'?><a/>"), "nothing") << version;
    // From 2.9 on Expat itself refuses them.
    const std::string said = Refusal("<?xml version='one'?><a/>");
    EXPECT_TRUE(said == "Line 1, column 1: version \"one\" declared." ||
                said == "Line 1, column 16: XML declaration not well-formed.")
        << said;
    EXPECT_EQ(Refusal("<?xml version='1.0'?><a/>"), "nothing");
    EXPECT_EQ(Refusal("<?xml version='1.1'?><a/>"), "nothing");
}

TEST(Reader, LineOfAFailureDoesNotHangOnTheCut) {
    for (const std::string lineEnd : {"\n", "\r", "\r\n"}) {
        for (const std::string& document : {"<a>" + lineEnd + "</a>" + lineEnd + lineEnd + "x",
                                            "<!-- -->" + lineEnd + "<a" + lineEnd + "b" + lineEnd + "/>",
                                            "<a/><!-- " + lineEnd + " -->" + lineEnd + "</a>"}) {
            const std::string said = Refusal(document);
            for (std::size_t cut = 0; cut <= document.size(); ++cut) {
                const auto reader = ZLiteXML::CreateReader();
                try {
                    reader->Read(document.data(), cut);
                    reader->Read(document.data() + cut, document.size() - cut);
                    reader->Finish();
                } catch (const ZLiteXML::XMLException& failure) {
                    EXPECT_STREQ(ZBase::FormatMessage(failure, 0).c_str(), said.c_str()) << cut;
                }
            }
        }
    }
    EXPECT_EQ(Refusal("<a>\r\n</a>\r\n\r\nx"), "Line 4, column 1: junk after document element.");
}

TEST(Reader, PieceBehindACompleteOneIsToldAtOnce) {
    std::string log;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Recorder(log, ""));
    const std::string first = "<a>" + std::string(2000, 't') + "<b/>";
    reader->Read(first.data(), first.size());
    reader->Read("<c/>", 4);
    EXPECT_TRUE(log.ends_with("<c >c ")) << log;
}

TEST(Reader, LongNamesAreCutInFailures) {
    const std::string said = Refusal("<!DOCTYPE a [<!ENTITY " + std::string(100000, 'n') + " 'x'>]><a/>");
    EXPECT_TRUE(said.ends_with(": entity \"" + std::string(100, 'n') + "...\" declared."))
        << said.substr(0, 300);
}

TEST(Reader, OtherDeclarationsAreOfNoConsequence) {
    EXPECT_EQ(Events("<!DOCTYPE m SYSTEM 'http://localhost/x' [<!ELEMENT m ANY><!ATTLIST m a CDATA "
                     "#IMPLIED>]><m a='&lt;'/>"),
              "<m @a=< >m ");
}

// A parser that scans an unfinished token from its start with each piece takes hours for these.
TEST(Reader, LongTokensInSmallPiecesTakeLinearTime) {
    const std::string filling(8 << 20, 'x');
    for (const std::string& document :
         {"<a><!--" + filling + "--></a>", "<a b='" + filling + "'/>", "<a><?p " + filling + "?></a>",
          "<" + filling + "/>", "<a><![CDATA[" + filling + "]]></a>"}) {
        const auto reader = ZLiteXML::CreateReader();
        ReadAll(*reader, document, 64);
    }
}

TEST(Reader, ManyAttributesAreTold) {
    constexpr int count = 50000;
    std::string document = "<a";
    std::string expected = "<a ";
    for (int number = 0; number < count; ++number) {
        document += " a" + std::to_string(number) + "=''";
        expected += "@a" + std::to_string(number) + "= ";
    }
    EXPECT_TRUE(Events(document + "/>", 1000) == expected + ">a ");
}

TEST(Reader, OutOfMemoryLeavesNothingBehind) {
    const std::size_t live = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([] {
        try {
            Events(
                "<a b='a value that is too long for the object of a string'>and such a text as well<c/></a>");
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GT(failures, 3u);
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
