#include "CommandLine.h"
#include "tools/zbase/terminal/Console.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <numeric>
#include <string_view>
#include <utility>

namespace {

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

// The parser takes a negative number modulo 2^64, and any that is larger for the largest.
std::string ComplaintOfNumber(const std::string& value) {
    errno = 0;
    std::strtoull(value.c_str(), nullptr, 0);
    if (errno != ERANGE && value.find('-') == std::string::npos) return "";
    return value + " is no number from 0 to 18446744073709551615";
}

template <typename T>
CLI::Option* AddTo(CLI::App& app, const char* names, T& value, const char* help) {
    return app.add_option(names, value, help)->capture_default_str();
}

}  // namespace

Option& Option::Required() {
    mpOption->required();
    return *this;
}

Option& Option::OneOf(const std::vector<std::string>& words) {
    mpOption->check(CLI::IsMember(words));
    return *this;
}

Option& Option::Size() {
    mpOption->transform(CLI::AsSizeValue(false));
    mpOption->transform(CLI::Validator([](std::string& value) { return ComplaintOfNumber(value); }, ""));
    return *this;
}

Option& Option::Excludes(const Option& other) {
    mpOption->excludes(other.mpOption);
    return *this;
}

Option& Option::Hidden() {
    mpOption->group("");
    return *this;
}

Command Command::AddCommand(const char* name, const char* help) {
    mpApp->require_subcommand(1);
    return {*mpApp->add_subcommand(name, help), *mpStatus};
}

Option Command::AddOption(const char* names, std::string& value, const char* help) {
    return Option(AddTo(*mpApp, names, value, help));
}

Option Command::AddOption(const char* names, unsigned short& value, const char* help) {
    return Option(AddTo(*mpApp, names, value, help)->check(ComplaintOfNumber));
}

Option Command::AddOption(const char* names, std::uint64_t& value, const char* help) {
    return Option(AddTo(*mpApp, names, value, help)->check(ComplaintOfNumber));
}

Option Command::AddFlag(const char* names, bool& value, const char* help) {
    return Option(mpApp->add_flag(names, value, help));
}

void Command::Runs(std::function<int()> function) {
    mpApp->callback([function = std::move(function), pStatus = mpStatus] { *pStatus = function(); });
}

int RunCommandLine(const std::vector<std::string>& arguments, const std::string& version,
                   std::initializer_list<void (*)(Command& program)> commands) {
    CLI::App app("The companion of the ZBase library.", "zbase");
    app.allow_windows_style_options(false);  // a path may begin with a slash
    app.set_version_flag("--version", version);

    int status = 0;
    Command program(app, status);
    for (const auto add : commands) add(program);
    RefuseEmptyArguments(app);
    try {
        std::vector<std::string> backwards(arguments.rbegin(), arguments.rend());
        if (!backwards.empty()) backwards.pop_back();  // the name of the program
        app.parse(backwards);
    } catch (const CLI::CallForHelp&) {
        Print(app.help());
        return 0;
    } catch (const CLI::CallForVersion& asked) {
        Print(asked.what() + std::string("\n"));
        return 0;
    } catch (const CLI::ParseError& wrong) {
        throw UsageError(wrong.what() + Suggestion(app, arguments));
    }
    return status;
}
