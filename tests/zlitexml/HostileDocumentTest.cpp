#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/XMLException.h>

#include <Base/frame/ReferenceCountedImpl.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/MessageXml.h>

#include <dlfcn.h>
#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "tests/support/HostileDocuments.h"

// Whatever the document and its pieces, the time for each octet is bounded, and the reader's results are the
// same. ZBASE_SOAK_MIB, the size of the largest document, is 4 by default; from 16 on every size is cut in
// every way, which takes hours.

namespace {

// Octets that were passed to the parser or scanned again, by this process.
std::uint64_t gLookedAt = 0;

int gDeferralsTurnedOff = 0;

// Octets that the parser still holds from before.
std::uint64_t Held(XML_Parser parser) {
#if XML_MAJOR_VERSION * 1000 + XML_MINOR_VERSION >= 2009  // the other is deprecated by then
    std::int64_t offset = 0;
    std::uint64_t held = 0;
    const bool holds = XML_GetInputContext64(parser, &offset, &held) != nullptr;
#else
    int offset = 0;
    int held = 0;
    const bool holds = XML_GetInputContext(parser, &offset, &held) != nullptr;
#endif
    return holds ? static_cast<std::uint64_t>(held) - static_cast<std::uint64_t>(offset) : 0;
}

}  // namespace

// Intercepts the parser's own.
extern "C" [[gnu::visibility("default")]] XML_Status XML_Parse(XML_Parser parser, const char* bytes, int size,
                                                               int isFinal) {
    static const auto parse = reinterpret_cast<decltype(&XML_Parse)>(dlsym(RTLD_NEXT, "XML_Parse"));
    gLookedAt += static_cast<std::uint64_t>(size) + Held(parser);
    return parse(parser, bytes, size, isFinal);
}

// Exists from Expat 2.6 on.
extern "C" [[gnu::visibility("default")]] XML_Bool XML_SetReparseDeferralEnabled(XML_Parser parser,
                                                                                 XML_Bool enabled) {
    if (enabled == XML_FALSE) ++gDeferralsTurnedOff;
    static const auto set = reinterpret_cast<decltype(&XML_SetReparseDeferralEnabled)>(
        dlsym(RTLD_NEXT, "XML_SetReparseDeferralEnabled"));
    return set == nullptr ? XML_FALSE : set(parser, enabled);
}

namespace {

using test::HostileDocument;

constexpr std::size_t kMiB = 1 << 20;
constexpr std::size_t kWhole = std::size_t{1} << 40;
constexpr double kLeast = 0.02;  // seconds; a shorter time is not significant

// Records its events.
class Recorder final : public ZLiteXML::UTF8EventHandler, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit Recorder(std::string& log) : mLog(log) {}
    void StartElement(const char* name) override { Note('<', name); }
    void Attribute(const char* name, const char* value) override {
        Note('@', name);
        Note('=', value);
    }
    void Characters(const char* text) override { mLog += text; }
    void Comment(const char* text) override { Note('!', text); }
    void EndElement(const char* name) override { Note('>', name); }

private:
    void Note(char kind, const char* text) {
        mLog += kind;
        mLog += text;
        mLog += ' ';
    }
    std::string& mLog;
};

// Passes a document in pieces. The reader's failure; empty if it accepts the document.
std::string Refusal(ZLiteXML::UTF8Reader& reader, const std::string& document, std::size_t piece) {
    try {
        for (std::size_t at = 0; at < document.size(); at += piece)
            reader.Read(document.data() + at, std::min(piece, document.size() - at));
        reader.Finish();
    } catch (const ZBase::Message& failure) {
        return ZBase::FormatMessage(failure, 0).c_str();
    }
    return {};
}

std::string EventsAndRefusal(const std::string& document, std::size_t piece) {
    std::string log;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(new Recorder(log));
    const std::string refusal = Refusal(*reader, document, piece);
    return log + "\n" + refusal;
}

double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Reads a document into a message, as a server does; returns the seconds of this thread.
double SecondsToRead(const std::string& document, std::size_t piece) {
    const double start = CpuSeconds();
    ZBase::Message message;
    const auto reader = ZLiteXML::CreateReader({.depth = 200'000, .size = document.size()});
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    Refusal(*reader, document, piece);
    return CpuSeconds() - start;
}

std::size_t LargestSize() {
    const char* set = std::getenv("ZBASE_SOAK_MIB");
    return set == nullptr ? 4 * kMiB : std::strtoul(set, nullptr, 10) * kMiB;
}

class HostileDocumentOfEachKind : public testing::TestWithParam<HostileDocument> {
protected:
    // Each octet is scanned a bounded number of times. The long run also measures time: four times the octets
    // may take twelve times as long.
    static void ExpectLinear(std::size_t largest, std::size_t piece) {
        double before = 0;
        for (std::size_t size = largest >= 16 * kMiB ? kMiB : largest / 4; size <= largest; size *= 4) {
            const std::string document = GetParam().make(size);
            gLookedAt = 0;
            const double seconds = SecondsToRead(document, piece);
            const std::uint64_t most = piece < 256 ? 300 : 3;
            EXPECT_LE(gLookedAt, most * (document.size() + kMiB)) << size << " in pieces of " << piece;
            if (before != 0 && largest >= 16 * kMiB) {
                EXPECT_LE(seconds, 12 * std::max(before, kLeast)) << size << " in pieces of " << piece;
            }
            before = seconds;
        }
    }
};

TEST_P(HostileDocumentOfEachKind, TakesTimeInProportionToItsOctets) {
    const std::size_t largest = LargestSize();
    const bool isSoak = largest >= 16 * kMiB;
    ExpectLinear(largest, kWhole);
    if (isSoak) ExpectLinear(largest, 65536);
    for (const std::size_t piece : {4096, 7, 1}) ExpectLinear(isSoak ? largest : largest / 16, piece);
}

// It would delay what is complete.
TEST(HostileDocument, DeferralOfANewerExpatIsTurnedOff) {
    gDeferralsTurnedOff = 0;
    ZLiteXML::CreateReader();
    EXPECT_EQ(gDeferralsTurnedOff, 1);
}

// Long enough for a reader that looks at a token anew with each further MiB.
TEST(HostileDocument, LongTokensAreLookedAtNoMoreThanThreeTimes) {
    const std::string filling(24 * kMiB, 'x');
    for (const std::string& document : {"<a><!--" + filling + "--></a>", "<a b='" + filling + "'/>"}) {
        for (const std::size_t piece : {kWhole, std::size_t{65536}}) {
            gLookedAt = 0;
            EXPECT_EQ(Refusal(*ZLiteXML::CreateReader(), document, piece), "");
            EXPECT_LE(gLookedAt, 3 * document.size()) << piece;
        }
    }
}

TEST_P(HostileDocumentOfEachKind, IsToldAndRefusedTheSameHoweverItIsCut) {
    const std::string whole = GetParam().make(250);
    if (whole.size() > 2000) return;  // the minimum
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const std::string document = whole.substr(0, length);
        const std::string expected = EventsAndRefusal(document, kWhole);
        for (const std::size_t piece : {1, 7, 64})
            ASSERT_EQ(EventsAndRefusal(document, piece), expected) << length << " in pieces of " << piece;
    }
}

// Of the whole the parser sees that they are no tokens; where a piece ends in one, it is junk.
TEST(HostileDocument, TextsBehindItAreToldTheSameHoweverTheyAreCut) {
    const std::pair<std::string, std::string> rows[] = {
        {"<m/>sss<", "Line 1, column 5"},
        {"<m></m>)x", "Line 1, column 8"},
        {"<m/>\r\n\n\"a\nb\"x", "Line 3, column 1"},
        {"<m/><!--\xC3\xA9\n--> <?p q?>\ts\x01", "Line 2, column 13"},
        {"<m/>ss\xC3", "Line 1, column 5"},
        {"<m/>&a;", "Line 1, column 5"},
    };
    for (const auto& [document, place] : rows) {
        const std::string whole = EventsAndRefusal(document, kWhole);
        EXPECT_NE(whole.find(place + ": junk after document element."), std::string::npos) << whole;
        for (std::size_t piece = 1; piece <= document.size(); ++piece)
            EXPECT_EQ(EventsAndRefusal(document, piece), whole) << piece;
    }
}

INSTANTIATE_TEST_SUITE_P(Documents, HostileDocumentOfEachKind, testing::ValuesIn(test::HostileDocuments()),
                         [](const auto& of) { return std::string(of.param.name); });

}  // namespace
