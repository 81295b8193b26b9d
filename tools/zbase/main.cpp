#include "Commands.h"
#include "tools/system/Programs.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/frame/Version.h>

#include <CLI/CLI.hpp>

#include <algorithm>
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

// Texts of files and of their names may contain control characters.
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

// The edit distance of two words.
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

// "; "x" is none, did you mean "y"?" for an unknown first word; else empty.
std::string Suggestion(const CLI::App& app, const std::vector<std::string>& arguments) {
    constexpr std::size_t kLike = 2;
    constexpr std::size_t kLongestWord = 64;
    constexpr std::size_t kNoCommands = SIZE_MAX;
    const CLI::App* at = &app;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view word = arguments[i];
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

// An empty text in the place of a file or a number is an unset variable.
void RefuseEmptyArguments(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        if (option->get_items_expected_max() == 0) continue;
        option->check([](const std::string& value) { return value.empty() ? "it is empty" : std::string(); });
    }
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; }))
        RefuseEmptyArguments(*command);
}

int Run(const std::vector<std::string>& arguments) {
    CLI::App app("The companion of the ZBase library.", "zbase");
    app.allow_windows_style_options(false);  // a path may begin with a slash
    app.require_subcommand(1);
    app.set_version_flag("--version", VersionText);

    int status = 0;
    for (const auto add : {ZBASE_COMMANDS(ZBASE_COMMAND_ENTRY)}) add(app, status);
    RefuseEmptyArguments(app);
    try {
        std::vector<std::string> backwards(arguments.rbegin(), arguments.rend());
        if (!backwards.empty()) backwards.pop_back();  // the name of the program
        app.parse(backwards);
    } catch (const CLI::CallForHelp&) {
        Print(app.help());
        FinishOutput();
        return 0;
    } catch (const CLI::CallForVersion& version) {
        Print(version.what() + std::string("\n"));
        FinishOutput();
        return 0;
    } catch (const CLI::ParseError& wrong) {
        return Complain(wrong.what() + Suggestion(app, arguments) + "; see zbase --help", kUsage);
    }
    FinishOutput();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(StartProgram(argc, argv));
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
