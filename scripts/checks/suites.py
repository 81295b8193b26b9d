#!/usr/bin/env python3
"""Refuses a suite of tests whose name does not begin with that of its file, without "Test", or better with another file's of the
same program. So the name of a failed test says where it stands, and a pattern of a component's name runs its tests.
"""

import pathlib
import re
import sys

SUITE = re.compile(r"^(?:TYPED_)?TEST(?:_[FP])?\(\s*(\w+)", re.M)
ONE_OF_SEVERAL = {"linux", "windows", "off"}  # folders whose files are in the program of the folder around


def main() -> int:
    stems, suites = {}, []
    for path in sorted(pathlib.Path("tests").rglob("*.cpp")):
        program = tuple(part for part in path.parent.parts if part not in ONE_OF_SEVERAL)
        found = set(SUITE.findall(path.read_text(encoding="utf-8")))
        if found:
            stem = path.stem.removesuffix("Test")
            stems.setdefault(program, set()).add(stem)
            suites += [(path, program, stem, suite) for suite in sorted(found)]
    wrong = []
    for path, program, stem, suite in suites:
        own = max((other for other in stems[program] if suite.startswith(other)), key=len, default="none")
        if own != stem:
            wrong.append(f"{path} has the suite {suite}, which by its name is of {own}")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong or not suites else 0


sys.exit(main())
