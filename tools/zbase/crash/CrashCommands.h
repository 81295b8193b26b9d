#pragma once

#include "tools/zbase/Commands.h"

/// What can be done about crashes, each a source of its own, `CrashCheck.cpp`, and declared as commands are.
#define ZBASE_CRASH_COMMANDS(EACH) EACH(CrashCheck) EACH(CrashTest) EACH(CrashShow) EACH(CrashSend)

ZBASE_CRASH_COMMANDS(ZBASE_DECLARE_COMMAND)
