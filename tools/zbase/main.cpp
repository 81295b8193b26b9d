#include "Commands.h"
#include "Console.h"

#include <Base/frame/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr int kUsage = 2;

// Texts of files and of their names may be in it.
std::string Lines(const std::string& what) {
    std::string lines;
    for (std::size_t at = 0; at <= what.size();) {
        const std::size_t end = std::min(what.find('\n', at), what.size());
        lines += (at == 0 ? "" : "\n") + Shown(std::string_view(what).substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "zbase: %s\n", Lines(what).c_str());
    return status;
}

std::string VersionText() {
    return std::string("zbase " ZBASE_VERSION) + ", library " + ZBase::GetLibraryVersion() +
           "\ncommit " ZBASE_COMMIT "\ncompiler " ZBASE_COMPILER "\nplatform " ZBASE_PLATFORM;
}

// How many letters must be put in, taken out or exchanged to make one word of the other.
std::size_t Distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i != one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j != other.size(); ++j) {
            const std::size_t exchanged = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({exchanged, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// "; "x" is none, did you mean "y"?" of the first word in the place of a command that is none; else empty.
std::string Suggestion(const CLI::App& app, int argc, char** argv) {
    constexpr std::size_t kLike = 2;
    constexpr std::size_t kLongestWord = 64;
    constexpr std::size_t kNoCommands = SIZE_MAX;
    const CLI::App* at = &app;
    for (int i = 1; i != argc; ++i) {
        const std::string_view word(argv[i]);
        if (word.starts_with('-') || word.size() > kLongestWord) return "";
        const CLI::App* next = nullptr;
        std::string nearest;
        std::size_t least = kNoCommands;
        for (const CLI::App* command : at->get_subcommands([](const CLI::App*) { return true; })) {
            const std::size_t distance = Distance(word, command->get_name());
            if (distance == 0) next = command;
            if (distance < least) {
                least = distance;
                nearest = command->get_name();
            }
        }
        if (least == kNoCommands) return "";
        if (next == nullptr) {
            const std::string isNone = "; \"" + std::string(word) + "\" is none";
            return least > kLike ? isNone : isNone + ", did you mean \"" + nearest + "\"?";
        }
        at = next;
    }
    return "";
}

// An empty text in the place of a file or a number is a variable that was not set.
void RefuseEmptyArguments(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        if (option->get_items_expected_max() == 0) continue;
        option->check([](const std::string& value) { return value.empty() ? "it is empty" : std::string(); });
    }
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; }))
        RefuseEmptyArguments(*command);
}

int Run(int argc, char** argv) {
    CLI::App app("The companion of the ZBase library.", "zbase");
    app.require_subcommand(1);
    app.set_version_flag("--version", VersionText);

    std::string roadFile = "/etc/os-release";
    CLI::App* road =
        app.add_subcommand("road", "Follow a file, and what fails on its way, through the library");
    road->add_option("FILE", roadFile, "A text to read")->capture_default_str();

    MessageRequest shown;
    CLI::App* message = app.add_subcommand("message", "Show an XML document of a message as a tree");
    message->add_option("FILE", shown.file, "The document; - is the standard input")->capture_default_str();
    message->add_option("-l,--language", shown.language, "Windows language id of the texts, such as 0x409")
        ->capture_default_str();
    message->add_flag("-p,--parameters", shown.parameters, "Show the parameters of each message");
    message->add_flag("-t,--texts", shown.texts, "Show the stored texts of all languages");
    message->add_option("--depth", shown.depth, "Levels of the document at most")->capture_default_str();
    message->add_option("--size", shown.size, "Bytes of the document at most, such as 512MB")
        ->transform(CLI::AsSizeValue(false))
        ->capture_default_str();
    CLI::Option* xml = message->add_flag("--xml", shown.xml, "Write the message as XML");
    message->add_flag("--json", shown.json, "Write one JSON object for each message")->excludes(xml);

    std::string code;
    CLI::App* error =
        app.add_subcommand("error", "Tell what a number or a symbol means in each domain of errors");
    error->add_option("CODE", code, "Decimal, hexadecimal behind 0x, or a symbol such as ENOENT")->required();

    TextRequest request;
    const auto encodings = CLI::IsMember({"utf8", "utf16le", "ascii", "locale"});
    CLI::App* text = app.add_subcommand("text", "Tell whether a file is UTF-8, and convert it");
    text->add_option("FILE", request.file, "The file; - is the standard input")->required();
    text->add_option("--from", request.from, "Its encoding: utf8, utf16le, ascii or locale")
        ->check(encodings)
        ->capture_default_str();
    text->add_option("--to", request.to, "Convert to utf8, utf16le, ascii or locale")->check(encodings);
    text->add_option("-o,--output", request.output, "Write there, not to the standard output");
    text->add_flag("--replace", request.replace, "Replace what can't be converted instead of stopping");

    std::string guidText;
    CLI::App* guid = app.add_subcommand("guid", "Make a new identifier, or show one in all its forms");
    guid->add_option("TEXT", guidText, "An identifier in any text form");

    std::string sidText;
    CLI::App* sid =
        app.add_subcommand("sid", "Make a new security identifier, or show one in both its forms");
    sid->add_option("TEXT", sidText, "Its text, or its bytes in hexadecimal");

    CLI::App* host = app.add_subcommand("host", "Tell what the library says of this host and process");

    CLI::App* crash = app.add_subcommand("crash", "Check, try and use crash reporting");
    crash->require_subcommand(1);
    std::string config;
    CLI::App* check = crash->add_subcommand("check", "Tell what each line of the configuration means");
    check->add_option("FILE", config, "A configuration, in place of the one that would be used");
    CLI::App* test = crash->add_subcommand("test", "Dump a process and send the report");
    bool isLocal = false;
    test->add_flag("--local", isLocal, "Send it to a report server of its own, and show what arrived");
    std::string dump;
    CLI::App* show = crash->add_subcommand("show", "Show the reason, the stack and the crash keys of a dump");
    show->add_option("DUMP", dump, "The dump")->required();
    bool hasAll = false;
    show->add_flag("--all", hasAll, "Show the stacks of all threads, with their names");
    std::string dumps;
    CLI::App* send = crash->add_subcommand(
        "send", "Send the dumps that were left behind; delete what arrived, if dumps are not kept");
    send->add_option("DIRECTORY", dumps, "Their directory, in place of that of the configuration");

    RefuseEmptyArguments(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        Print(app.help());
        FinishOutput();
        return 0;
    } catch (const CLI::CallForVersion& version) {
        Print(version.what() + std::string("\n"));
        FinishOutput();
        return 0;
    } catch (const CLI::ParseError& wrong) {
        return Complain(wrong.what() + Suggestion(app, argc, argv) + "; see zbase --help", kUsage);
    }

    int status = 0;
    if (*road) status = RunRoad(roadFile);
    if (*message) status = RunMessage(shown);
    if (*error) status = RunError(code);
    if (*text) status = RunText(request);
    if (*guid) status = RunGuid(guidText);
    if (*sid) status = RunSid(sidText);
    if (*host) status = RunHost();
    if (*check) status = RunCrashCheck(config);
    if (*test) status = RunCrashTest(isLocal);
    if (*show) status = RunCrashShow(dump, hasAll);
    if (*send) status = RunCrashSend(dumps);
    FinishOutput();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const ClosedPipe&) {
        return 1;
    } catch (const std::bad_alloc&) {
        return Complain("out of memory", 1);
    } catch (const std::exception& failure) {
        return Complain(failure.what(), 1);
    } catch (...) {
        return Complain(ZBase::FormatMessage(ZBase::MessageOfCurrentException(), 0).c_str(), 1);
    }
}
