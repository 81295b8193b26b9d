#!/usr/bin/env python3
"""coverage.py BUILD [LIST]: compares what no test reached with the list, tests/coverage/unreached.txt if none is given.

BUILD has the notes and counters of the libraries' objects; the tree is the current directory. A line of the list is a number of
lines, a source, and the reason why no test reaches them; "2-5" are lines that some runs reach. A source without a line of the list
has none. More or fewer of them is a finding, and so are less than 97 % of all lines or 90 % of all branches. Prints what differs and
the figures; exits with 1 if anything does. Leaves BUILD/lines.txt: of each source the lines, and the lines' branches, that were not
reached."""

import collections
import pathlib
import re
import sys

import counted

LEAST = {"lines": 97.0, "branches": 90.0}
FOLDERS = ("Base", "DebugHelp", "ZLiteXML")


def listed(path):
    found = {}
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        parts = line.split(None, 2)
        if len(parts) < 3 or not re.fullmatch(r"\d+(-\d+)?", parts[0]) or parts[1] in found:
            sys.exit(f"{path}:{number}: a line is a number, a source that no other line has, and a reason")
        least, _, most = parts[0].partition("-")
        found[parts[1]] = range(int(least), int(most or least) + 1)
    return found


def numbers(lines):
    """1,2,3,7 as "1-3, 7"."""
    spans = []
    for line in lines:
        if spans and spans[-1][1] == line - 1:
            spans[-1][1] = line
        else:
            spans.append([line, line])
    return ", ".join(str(first) if first == last else f"{first}-{last}" for first, last in spans)


def report(path, source, missing):
    """Of a source a line for each line with something that was not reached, with its text."""
    text = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    taken, all_of = collections.Counter(), collections.Counter()
    for (line, _, _), count in source.branches.items():
        all_of[line] += 1
        taken[line] += count > 0
    for line in sorted({*missing, *(line for line in all_of if taken[line] < all_of[line])}):
        what = "not reached" if line in missing else f"{taken[line]} of {all_of[line]} branches"
        yield f"{path}:{line}: {what}: {text[line - 1].strip()}"


def main():
    build = pathlib.Path(sys.argv[1])
    path = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else "tests/coverage/unreached.txt")
    may = listed(path)
    unreached, counts, told = {}, {"lines": [0, 0], "branches": [0, 0]}, []
    for name, source in sorted(counted.read(build, pathlib.Path.cwd(), FOLDERS).items()):
        unreached[name] = sorted(line for line, count in source.lines.items() if count == 0)
        told += report(name, source, unreached[name])
        for kind, parts in (("lines", source.lines), ("branches", source.branches)):
            counts[kind][0] += len(parts)
            counts[kind][1] += sum(count > 0 for count in parts.values())
    (build / "lines.txt").write_text("".join(f"{line}\n" for line in told), encoding="utf-8")
    wrong = []
    for source in sorted(unreached.keys() | may.keys()):
        lines, known = unreached.get(source, []), may.get(source, range(1))
        if len(lines) not in known:
            which = f" ({numbers(lines)})" if lines else ""
            wrong.append(f"{source}: {len(lines)} lines{which} that no test reaches, {known[-1]} in {path}")
    for kind, (total, reached) in counts.items():
        share = 100 * reached / total if total else 0.0
        print(f"{kind}: {reached} of {total} are reached, {share:.1f} %, of which {LEAST[kind]:.0f} % are wanted")
        if share < LEAST[kind]:
            wrong.append(f"too few {kind}")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong else 0


sys.exit(main())
