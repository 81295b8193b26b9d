#include "CrashCommands.h"

void AddCrashCommand(CLI::App& app, int& status) {
    CLI::App* crash = app.add_subcommand("crash", "Check, try and use crash reporting");
    crash->require_subcommand(1);
    for (const auto add : {ZBASE_CRASH_COMMANDS(ZBASE_COMMAND_ENTRY)}) add(*crash, status);
}
