#pragma once

#include "CommandLine.h"

/// Every command, in the order of the help. Each is a source of its own, `GuidCommand.cpp`, which declares
/// its name, its options and their help, with the function to run. That returns the exit status: 0,
/// or 1 when its input is bad. What can't be read or written is thrown as `Failure`.
#define ZBASE_COMMANDS(EACH) \
    EACH(Road) EACH(Message) EACH(Error) EACH(Text) EACH(Guid) EACH(Sid) EACH(Host) EACH(Crash)

#define ZBASE_DECLARE_COMMAND(NAME) void Add##NAME##Command(Command& parent);
ZBASE_COMMANDS(ZBASE_DECLARE_COMMAND)

#define ZBASE_COMMAND_ENTRY(NAME) Add##NAME##Command,
