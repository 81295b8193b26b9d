// A small server: requests run on a pool of threads, each in a buffer with a budget. Failures are rethrown on
// the waiting thread, and sent to another process, which shows them.

#include <Base/ZBase.h>

#include "ThreadPool.h"

#include <stdio.h>
#include <cstring>
#include <future>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int kRequestFailed = 201;
constexpr int kNotText = 202;

struct ServerRequest {
    std::string name;
    std::size_t budget;  // bytes
    std::string text;    // UTF-8, or not
    int copies;
};

// Wide copies of the request's text, all in its buffer. Returns their units.
std::size_t Answer(const ServerRequest& request) {
    try {
        const ZBase::SmartPtrI<ZBase::MemoryBudget> budget = ZBase::MemoryBudget::Create(request.budget);
        const ZBase::BufferPtr buffer(ZBase::CreateBufferThreadSafe(0, 1, budget.Get(), 0, false));
        auto* const copies = ZBase::New<std::vector<std::u16string_view>>(buffer.get());
        const std::u16string text = ZBase::ToUTF16(request.text, false);
        std::size_t units = 0;
        for (int i = 0; i != request.copies; ++i) {
            auto* const place = ZBase::New<char16_t[]>(buffer.get(), text.size());
            copies->emplace_back(place, text.copy(place, text.size()));
            units += text.size();
        }
        return units;
    } catch (ZBase::StringConversionException& failure) {
        failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kNotText, "The text is not UTF-8.");
        throw;
    }
}

// Writes the failure to a second process of this program.
int Send(const std::string& program, const ZBase::Message& failure) {
    std::string document;
    ZBase::SerializeToXML(failure, *ZLiteXML::CreateStringWriter(document, {.replace = true}));
    fflush(stdout);
    FILE* const other = popen(("\"" + program + "\" --receive").c_str(), "w");
    if (other == nullptr) return 1;
    fwrite(document.data(), 1, document.size(), other);
    return pclose(other);
}

int Receive() {
    ZBase::Message failure;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(failure, *reader).Get());
    char piece[4096];
    for (std::size_t size; (size = fread(piece, 1, sizeof piece, stdin)) != 0;) reader->Read(piece, size);
    reader->Finish();
    printf("%s", ZBase::FormatTree(failure).c_str());
    return failure.IsEmpty() ? 1 : 0;
}

int Serve(const std::string& program) {
    const ServerRequest requests[] = {{"modest", 400'000, "caf\u00E9", 100},
                                      {"greedy", 100'000, std::string(1'000, 'x'), 1'000},
                                      {"garbled", 400'000, "caf\xE9", 1}};
    std::vector<std::future<std::size_t>> answers;
    ThreadPool pool(2);
    for (const ServerRequest& request : requests)
        answers.push_back(pool.Ask([&request] { return Answer(request); }));
    int status = 0;
    for (std::size_t i = 0; i != std::size(requests); ++i) {
        try {
            printf("%s: %zu units\n", requests[i].name.c_str(), answers[i].get());
        } catch (...) {  // any exception becomes a record
            ZBase::Message failure = ZBase::MessageOfCurrentException();
            failure.WrapBy(ZBase::MESSAGE_DOMAIN_SERVER, kRequestFailed, "Request %1 failed.")
                << requests[i].name;
            status |= Send(program, failure);
        }
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return argc > 1 && std::strcmp(argv[1], "--receive") == 0 ? Receive() : Serve(argv[0]);
    } catch (...) {
        fprintf(stderr, "%s", ZBase::FormatTree(ZBase::MessageOfCurrentException()).c_str());
        return 1;
    }
}
