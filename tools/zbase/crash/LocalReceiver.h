#pragma once

#include "tools/system/Files.h"
#include "tools/system/Programs.h"

#include <filesystem>
#include <string>

/// The report server for development, run in a process of its own until the end of the scope, with a
/// directory for its reports. Throws `Failure` when it is not in this program's directory or does not start.
class LocalReceiver {
public:
    LocalReceiver();

    const std::string& Address() const { return mProgram.FirstLine(); }
    const std::filesystem::path& Directory() const { return mDirectory.Path(); }

private:
    TemporaryDirectory mDirectory;
    BackgroundProgram mProgram;
};
