#include <Base/ZBase.h>

#include <benchmark/benchmark.h>
#include <expat.h>

#include <stdexcept>
#include <string>

// A record of nested messages as XML: written, read back, and, on the same bytes, the parser alone with
// handlers that do almost nothing. The argument is the number of messages; the time of an item is that of one
// message, which shows whether it grows with their number.

namespace {

using ZBase::Message;

constexpr std::size_t kPiece = 65536;  // bytes, as from a stream

// Each wrapped by the next, or each followed by the next.
enum EShape { Wrapped, Followed };

void AddFields(Message& message, int number) {
    message << "/srv/objects/intelligent-cubes/00004711.dat" << number;
    message.SetLocalizedText(1031,
                             "Die Datei konnte nicht ge\xC3\xB6"
                             "ffnet werden.");
}

Message MakeRecord(EShape shape, int count) {
    Message record;
    for (int number = 0; number < count; ++number) {
        const char* text = "Cannot open file %1 at attempt %2.";
        if (shape == Wrapped) record.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, number, text);
        if (shape == Followed) record.PrependBy(ZBase::MESSAGE_DOMAIN_SERVER, number, text);
        AddFields(record, number);
    }
    return record;
}

std::string ToXML(const Message& message) {
    std::string document;
    ZBase::SerializeToXML(message, *ZLiteXML::CreateStringWriter(document));
    return document;
}

void FromXML(const std::string& document, Message& message) {
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    for (std::size_t at = 0; at < document.size(); at += kPiece)
        reader->Read(document.data() + at, std::min(kPiece, document.size() - at));
    reader->Finish();
}

void Count(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Write(benchmark::State& state, EShape shape) {
    const Message record = MakeRecord(shape, static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(ToXML(record));
    Count(state, ToXML(record).size());
}

void Read(benchmark::State& state, EShape shape) {
    const std::string document = ToXML(MakeRecord(shape, static_cast<int>(state.range(0))));
    for (auto _ : state) {
        Message message;
        FromXML(document, message);
        benchmark::DoNotOptimize(message);
    }
    Count(state, document.size());
}

void ParserAlone(benchmark::State& state, EShape shape) {
    const std::string document = ToXML(MakeRecord(shape, static_cast<int>(state.range(0))));
    for (auto _ : state) {
        std::size_t events = 0;
        const XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetUserData(parser, &events);
        XML_SetElementHandler(
            parser, [](void* count, const char*, const char**) { ++*static_cast<std::size_t*>(count); },
            [](void* count, const char*) { ++*static_cast<std::size_t*>(count); });
        XML_SetCharacterDataHandler(
            parser, [](void* count, const char*, int) { ++*static_cast<std::size_t*>(count); });
        for (std::size_t at = 0; at < document.size(); at += kPiece) {
            const std::size_t size = std::min(kPiece, document.size() - at);
            if (XML_Parse(parser, document.data() + at, static_cast<int>(size),
                          at + size == document.size()) != XML_STATUS_OK)
                throw std::runtime_error("not well-formed");
        }
        XML_ParserFree(parser);
        benchmark::DoNotOptimize(events);
    }
    Count(state, document.size());
}

BENCHMARK_CAPTURE(Write, wrapped, Wrapped)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);
BENCHMARK_CAPTURE(Read, wrapped, Wrapped)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);
BENCHMARK_CAPTURE(ParserAlone, wrapped, Wrapped)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);
BENCHMARK_CAPTURE(Write, followed, Followed)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);
BENCHMARK_CAPTURE(Read, followed, Followed)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);
BENCHMARK_CAPTURE(ParserAlone, followed, Followed)->Arg(10)->Arg(100)->Arg(1000)->Arg(9999);

}  // namespace
