#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

// The parser is slow to compile: only CommandLine.cpp includes it.
namespace CLI {
class App;
class Option;
}  // namespace CLI

/// An option, a flag or a positional argument of a command. What is declared of it can be chained.
class Option {
public:
    Option& Required();
    Option& OneOf(const std::vector<std::string>& words);
    /// A number of bytes, with or without a unit, such as 512MB.
    Option& Size();
    Option& Excludes(const Option& other);
    /// The help does not show it.
    Option& Hidden();

private:
    friend class Command;
    explicit Option(CLI::Option* pOption) : mpOption(pOption) {}

    CLI::Option* mpOption;  // held, not owned
};

/// A command as the parser of the command line knows it, valid while commands are declared.
class Command {
public:
    Command(CLI::App& app, int& status) : mpApp(&app), mpStatus(&status) {}

    /// A command that has commands needs one of them.
    Command AddCommand(const char* name, const char* help);

    /// `names` is "FILE" for a positional argument, else such as "-o,--output". `value` holds the default,
    /// which the help shows unless it is empty; it belongs to the function to run, since it must outlive the
    /// parser.
    Option AddOption(const char* names, std::string& value, const char* help);
    Option AddOption(const char* names, unsigned short& value, const char* help);
    Option AddOption(const char* names, std::uint64_t& value, const char* help);
    Option AddFlag(const char* names, bool& value, const char* help);

    /// The function to run when the command is given. It returns the exit status.
    void Runs(std::function<int()> function);

private:
    CLI::App* mpApp;  // held, not owned
    int* mpStatus;    // held, not owned
};

/// A wrong command line.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Runs the command that the arguments, behind the name of the program, give, and returns its exit status.
/// `--help` and `--version` are printed, and 0 returned. Throws `UsageError`, and what the command throws.
int RunCommandLine(const std::vector<std::string>& arguments, const std::string& version,
                   std::initializer_list<void (*)(Command& program)> commands);
