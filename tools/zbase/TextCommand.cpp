#include "Commands.h"
#include "tools/zbase/terminal/Console.h"
#include "tools/zbase/terminal/Progress.h"
#include "tools/zbase/text/TextScan.h"
#include "tools/zbase/text/TextStream.h"

#include <ZLiteXML/detail/Output.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace {

struct TextRequest {
    std::string file;
    std::string from = "utf8";
    std::string to;  // empty: report only
    std::string output;
    bool replace = false;
};

using Sink = std::function<void(std::string_view octets)>;

Progress Bar(const TextRequest& request, int passes) {
    auto total = FileSize(request.file);
    if (total) *total *= static_cast<unsigned int>(passes);
    return Progress(request.file, total, !request.to.empty() && request.output.empty() && IsTerminal());
}

// Passes the file to `take(octets, isLast)`, which returns whether it wants more.
void Feed(const std::string& file, Progress& progress,
          const std::function<bool(std::string_view octets, bool isLast)>& take) {
    bool isWanted = true;
    ReadPieces(file, [&](const char* bytes, std::size_t size) {
        progress.Add(size);
        isWanted = take({bytes, size}, false);
        return isWanted;
    });
    if (isWanted) take({}, true);
}

int Report(const TextRequest& request) {
    TextScan scan;
    std::size_t octets = 0;
    Progress progress = Bar(request, 1);
    const auto size = FileSize(request.file);
    Feed(request.file, progress, [&](std::string_view piece, bool isLast) {
        octets += piece.size();
        scan.Take(piece, isLast);
        return !scan.IsFlawed() || !size;  // the size is known only at the end if it is not a regular file
    });
    progress.Clear();
    if (scan.IsFlawed() && size) octets = std::max(octets, static_cast<std::size_t>(*size));
    const std::string file = Styled(Shown(request.file), "1");
    const std::string all = std::to_string(octets) + " octets";
    if (!scan.IsFlawed()) {
        Print(file + ": UTF-8, " + all + ", " + std::to_string(scan.Characters()) + " characters\n");
        return 0;
    }
    Print(file + ": " + Styled("not UTF-8", "31") + " at offset " + std::to_string(scan.Octets()) + " of " +
          all + " (line " + std::to_string(scan.Line()) + ", character " + std::to_string(scan.Column()) +
          "): " + scan.Reason() + "\n");
    return 1;
}

void Convert(const TextRequest& request, Progress& progress, const Sink& sink) {
    TextConverter converter(request.from, request.to, request.replace);
    Feed(request.file, progress, [&](std::string_view piece, bool isLast) {
        try {
            sink(converter.Take(piece, isLast));
        } catch (const BadText& bad) {
            throw Failure(request.file + ": " + bad.what());
        }
        return true;
    });
}

void ConvertToFile(const TextRequest& request) {
    const std::unique_ptr<ZLiteXML::Output> output = ZLiteXML::CreateFileOutput(request.output.c_str());
    output->Write({});  // an empty text makes a file, too
    Progress progress = Bar(request, 1);
    Convert(request, progress, [&](std::string_view octets) { output->Write(octets); });
    output->Commit();
}

// Output can't be taken back, so a file is scanned before.
void ConvertToOutput(const TextRequest& request) {
    const bool isTried = FileSize(request.file).has_value();
    Progress progress = Bar(request, isTried ? 2 : 1);
    if (isTried) Convert(request, progress, [](std::string_view) {});
    Convert(request, progress, [](std::string_view octets) { Print(octets); });
}

int ReportOrConvert(const TextRequest& request) {
    if (request.to.empty()) {
        if (request.from == "utf8" && !request.replace && request.output.empty()) return Report(request);
        throw Failure("--from, --replace and --output need --to");
    }
    if (request.output.empty()) {
        ConvertToOutput(request);
    } else {
        ConvertToFile(request);
    }
    return 0;
}

}  // namespace

void AddTextCommand(Command& zbase) {
    const std::vector<std::string> encodings = {"utf8", "utf16le", "ascii", "locale"};
    const auto request = std::make_shared<TextRequest>();
    Command text = zbase.AddCommand("text", "Tell whether a file is UTF-8, and convert it");
    text.AddOption("FILE", request->file, "The file; - is the standard input").Required();
    text.AddOption("--from", request->from, "Its encoding: utf8, utf16le, ascii or locale").OneOf(encodings);
    text.AddOption("--to", request->to, "Convert to utf8, utf16le, ascii or locale").OneOf(encodings);
    text.AddOption("-o,--output", request->output, "Write there, not to the standard output");
    text.AddFlag("--replace", request->replace, "Replace what can't be converted instead of stopping");
    text.Runs([request] { return ReportOrConvert(*request); });
}
