#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// To be called at first: the arguments of this program, the first its name, in UTF-8. A reader that closes a
/// pipe doesn't end the process from now on, and the standard output takes octets as they are.
std::vector<std::string> StartProgram(int argc, char** argv);

/// A name under which the file of this program can be read.
std::string ThisProgram();

/// The directory of this program. Throws where the system does not tell.
std::string ProgramDirectory();

/// The file of the library or program that has this code; empty if none has.
std::string FileOfCode(const void* code);

/// The path of a program in a directory, whatever the system appends to its name; empty with `errno` if there
/// is none that may be run.
std::string ProgramIn(const std::string& directory, const std::string& name);

/// The directories in which the system looks for programs.
std::vector<std::string> ProgramDirectories();

/// A text file that every system of this kind has.
std::string TextOfTheSystem();

/// The text that a program prints, with line feeds alone. Throws `Failure` if it can't be run, or fails and
/// prints nothing; its error stream is dropped.
std::string OutputOf(const std::vector<std::string>& command);

/// A program that runs until the end of the object at most.
class BackgroundProgram {
public:
    /// Throws `Failure` if it does not start or ends without a line of output.
    explicit BackgroundProgram(const std::vector<std::string>& command);
    ~BackgroundProgram();
    BackgroundProgram(const BackgroundProgram&) = delete;
    BackgroundProgram& operator=(const BackgroundProgram&) = delete;

    /// Without its end. The program continues without a reader of its output.
    const std::string& FirstLine() const { return mFirstLine; }

private:
    void End() const;

    std::string mFirstLine;
    std::intptr_t mProcess = 0;
};
