#pragma once

#if defined(__x86_64__)
#include <Base/platform/os/linux/stacks/x86_64/Registers.h>
#else
#error \
    "Another processor brings its registers as its unwind tables number them, and how they are captured: \
see stacks/x86_64/Registers.h and docs/porting.md"
#endif
