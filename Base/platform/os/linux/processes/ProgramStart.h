#pragma once

#include <string>
#include <vector>

namespace ZBase::os {

/// The arguments of this process, the program first, as they were at its start.
std::vector<std::string> ProgramArguments();

/// The absolute path of the program of this process; empty if the system refuses. Without /proc it is as the
/// program was started, and may be relative.
std::string ProgramPath();

/// The path that the program was started by, which may be relative; null if the kernel does not tell. It
/// needs no heap, no lock and no /proc.
const char* ProgramAsStarted();

/// The path of a program or module from the kernel, without the " (deleted)" that it appends for a file that
/// was removed. `file` is another path to the file. A file that is really called so keeps its name.
std::string WithoutDeletionMark(const std::string& path, const char* file);

/// The same for the file with this inode number. The device is not compared: on overlay file systems the list
/// of mappings has another one than the file.
std::string WithoutDeletionMark(const std::string& path, unsigned long inode);

}  // namespace ZBase::os
