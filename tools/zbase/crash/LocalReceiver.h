#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

/// The report server for development, run in a process of its own until the end of the scope, with a
/// directory for what it receives. Throws `Failure` when it does not stand beside this program or does not
/// start.
class LocalReceiver {
public:
    LocalReceiver();
    ~LocalReceiver();
    LocalReceiver(const LocalReceiver&) = delete;
    LocalReceiver& operator=(const LocalReceiver&) = delete;

    const std::string& Address() const { return mAddress; }
    const std::filesystem::path& Directory() const { return mDirectory; }

private:
    std::filesystem::path mDirectory;
    std::string mAddress;
    pid_t mProcess = -1;
};
