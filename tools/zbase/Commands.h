#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The commands of zbase. Each gives the exit status: 0, or 1 when what it was asked about is bad. What can't
// be read or written leaves as `Failure`.

struct TextRequest {
    std::string file;
    std::string from = "utf8";
    std::string to;  // empty: report only
    std::string output;
    bool replace = false;
};

struct MessageRequest {
    std::string file = "-";
    unsigned short language = 0;
    bool parameters = false;
    bool texts = false;
    bool xml = false;
    bool json = false;
    std::size_t depth = 10'000;                    // levels of the document at most
    std::uint64_t size = std::uint64_t{64} << 20;  // bytes at most
};

int RunRoad(const std::string& file);
int RunError(const std::string& code);
int RunText(const TextRequest& request);
int RunMessage(const MessageRequest& request);

// An empty text asks for a new identifier.
int RunGuid(const std::string& text);
int RunSid(const std::string& text);

int RunHost();

int RunCrashCheck(const std::string& file);              // empty: the file that the library would find
int RunCrashTest(bool isLocal);                          // with a report server of its own
int RunCrashShow(const std::string& dump, bool hasAll);  // all threads, or the crashed one
int RunCrashSend(const std::string& directory);          // empty: that of the configuration
