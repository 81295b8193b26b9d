#!/usr/bin/env python3
"""coverage.py REPORT [LIST]: compares what no test reached with the list, tests/coverage/unreached.txt if none is given.

REPORT is what gcovr --json wrote. A line of the list is a number of lines, a source, and the reason why no test reaches them; "2-5"
are lines that some runs reach. "no-FLAG" instead of a number is for a source that needs a processor with this flag of
/proc/cpuinfo: on one without it, what is not reached of it counts for nothing; on one with it all has to be reached. A source without a line of the list has none. More or fewer of them is a finding, and so are less
than 97 % of all lines or 90 % of all branches. Prints what differs and the figures; exits with 1 if anything does."""

import json
import pathlib
import re
import sys

LEAST = {"lines": 97.0, "branches": 90.0}
ELSEWHERE = None  # as many as are not reached


def flags():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    return set(re.search(r"^flags\s*:(.*)$", text, re.M).group(1).split())


def listed(path):
    found = {}
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        parts = line.split(None, 2)
        if len(parts) < 3 or not re.fullmatch(r"\d+(-\d+)?|no-\w+", parts[0]) or parts[1] in found:
            sys.exit(f"{path}:{number}: a line is a number, a source that no other line has, and a reason")
        if parts[0].startswith("no-"):
            found[parts[1]] = range(1) if parts[0][3:] in flags() else ELSEWHERE
            continue
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


def main():
    path = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else "tests/coverage/unreached.txt")
    report = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    may = listed(path)
    unreached, counts = {}, {"lines": [0, 0], "branches": [0, 0]}
    for file in report["files"]:
        lines = [line for line in file["lines"] if not line["gcovr/noncode"]]
        unreached[file["file"]] = sorted(line["line_number"] for line in lines if line["count"] == 0)
        isElsewhere = may.get(file["file"], range(1)) is ELSEWHERE
        for name, parts in (("lines", lines), ("branches", [branch for line in lines for branch in line["branches"]])):
            reached = sum(part["count"] > 0 for part in parts)
            counts[name][0] += reached if isElsewhere else len(parts)
            counts[name][1] += reached
    wrong = []
    for source in sorted(unreached.keys() | may.keys()):
        lines, known = unreached.get(source, []), may.get(source, range(1))
        if known is not ELSEWHERE and len(lines) not in known:
            which = f" ({numbers(lines)})" if lines else ""
            wrong.append(f"{source}: {len(lines)} lines{which} that no test reaches, {known[-1]} in {path}")
    for name, (total, reached) in counts.items():
        share = 100 * reached / total if total else 0.0
        print(f"{name}: {reached} of {total} are reached, {share:.1f} %, of which {LEAST[name]:.0f} % are wanted")
        if share < LEAST[name]:
            wrong.append(f"too few {name}")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong else 0


sys.exit(main())
