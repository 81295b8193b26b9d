#!/usr/bin/env python3
"""Refuses an include that points up, and the name of a register outside the folders of its processor.

A file belongs to the layer with the longest matching path.
"""

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
    ["Base/frame/Load.cpp", "Base/ZBase.h", "DebugHelp", "ZLiteXML"],  # construct, name and use everything
]
# Only these may name registers.
OF_A_PROCESSOR = ("/x86_64/", "/text/detail/kernels/")
REGISTER = re.compile(r"\b(r[a-d]x|r[sd]i|r[sb]p|rip|r[89]|r1[0-5]|eflags|mxcsr|[xyz]mm\d+|REG_[A-Z0-9]+)\b")
LEVELS = {place: level for level, places in enumerate(LAYERS) for place in places}


def level(path: str) -> int:
    matches = [place for place in LEVELS if path == place or path.startswith(place + "/")]
    return LEVELS[max(matches, key=len)]


def main() -> int:
    wrong = []
    for path in sorted(path for top in ("Base", "DebugHelp", "ZLiteXML") for path in pathlib.Path(top).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        text = path.read_text()
        register = REGISTER.search(text)
        if register and not any(folder in str(path) for folder in OF_A_PROCESSOR):
            wrong.append(f"{path} names the register {register.group()}")
        for included in re.findall(r'#include [<"](Base/[^>"]+)', text):
            if level(included) > level(str(path)):
                wrong.append(f"{path} includes {included}, which lies above it")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong else 0


sys.exit(main())
