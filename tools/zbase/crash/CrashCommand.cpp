#include "CrashCommands.h"

void AddCrashCommand(Command& zbase) {
    Command crash = zbase.AddCommand("crash", "Check, try and use crash reporting");
    for (const auto add : {ZBASE_CRASH_COMMANDS(ZBASE_COMMAND_ENTRY)}) add(crash);
}
