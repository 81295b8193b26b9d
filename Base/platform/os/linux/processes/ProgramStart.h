#pragma once

#include <string>
#include <vector>

namespace ZBase::os {

/// The arguments of this process, the program first, as its start was given them.
std::vector<std::string> ProgramArguments();

/// The absolute path of the program of this process; empty if the system does not tell. Where there is no
/// process list it is as the program was started, and may be relative.
std::string ProgramPath();

/// The path of a program or module as the kernel tells it, without the mark that it puts behind the path of a
/// file that is not there any more. `file` is another way to the file. A file that is really called so keeps
/// its name.
std::string WithoutDeletionMark(const std::string& path, const char* file);

/// The same for the file with this number. Its device does not count: the list of mappings names another one
/// than the file does where file systems lie upon each other.
std::string WithoutDeletionMark(const std::string& path, unsigned long inode);

}  // namespace ZBase::os
