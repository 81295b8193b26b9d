#pragma once

#include "tools/zbase/Commands.h"

/// The subcommands of `crash`, each a source of its own, `CrashCheck.cpp`, declared like commands.
#define ZBASE_CRASH_COMMANDS(EACH) EACH(CrashCheck) EACH(CrashTest) EACH(CrashShow) EACH(CrashSend)

ZBASE_CRASH_COMMANDS(ZBASE_DECLARE_COMMAND)
