#define ZBASE_TEST_ENTRY_MISSING
#include "tests/modules/ScriptedDebugHelp.cpp"
