#!/usr/bin/env python3
"""Refuses an include that points up. A file belongs to the layer with the longest matching path."""

import pathlib
import re
import sys

# From the ground up; places on one line may include each other.
LAYERS = [
    ["Base/platform/os"],
    ["Base/frame", "Base/memory/Buffer.h"],  # the interface of an allocator stands on nothing
    ["Base/text", "Base/messages", "Base/frame/Exceptions.h"],  # an exception is a message
    ["Base/memory", "Base/switches", "Base/ContractManagerAllocator.h", "Base/ContractManagerAllocator.cpp",
     "Base/text/GovernedConversions.h", "Base/text/GovernedConversions.cpp"],  # a conversion that pays
    ["Base/platform", "Base/diagnostics",
     "Base/memory/detail/DebugBuffer.h", "Base/memory/detail/DebugBuffer.cpp",  # it tells stacks
     "Base/memory/BufferGrowth.cpp"],  # of any buffer
    ["Base/crash"],
    ["Base/frame/Load.cpp", "Base/ZBase.h"],  # construct and name everything
]
LEVELS = {place: level for level, places in enumerate(LAYERS) for place in places}


def level(path: str) -> int:
    matches = [place for place in LEVELS if path == place or path.startswith(place + "/")]
    return LEVELS[max(matches, key=len)]


def main() -> int:
    wrong = []
    for path in sorted(pathlib.Path("Base").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        for included in re.findall(r'#include [<"](Base/[^>"]+)', path.read_text()):
            if level(included) > level(str(path)):
                wrong.append(f"{path} includes {included}, which lies above it")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong else 0


sys.exit(main())
