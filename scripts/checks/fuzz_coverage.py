#!/usr/bin/env python3
"""fuzz_coverage.py PROGRAMS: the lines that each fuzzer reached of the sources it is for, which its source names as "For: ...".

PROGRAMS has the fuzzers, built with coverage, and NAME.profdata of each that ran. One that reached less than 95 % fails, unless
fuzz/uncovered.txt has a line "NAME: reason" for it; such a line for one that reached them fails too.
"""
import os
import re
import subprocess
import sys

GOAL = 95.0
programs = sys.argv[1]
failures = []


def uncovered():
    reasons = {}
    if os.path.exists("fuzz/uncovered.txt"):
        for line in open("fuzz/uncovered.txt"):
            name, _, reason = line.partition(":")
            if not line.startswith("#") and reason.strip():
                reasons[name.strip()] = reason.strip()
    return reasons


def sources_of(name):
    source = open(f"fuzz/{name}.cpp").read()
    return [path for line in re.findall(r"^// For: (.*)", source, re.M) for path in line.split()]


def path_of(named):
    """A source by its path from here: some compilers name it from the directory of the build."""
    for start in (".", os.path.dirname(programs), programs):
        path = os.path.relpath(os.path.join(start, named))
        if os.path.exists(path):
            return path
    return named


def lines_of(name):
    """The lines of each source that have code, and how often they were reached."""
    command = ["llvm-cov-16", "export", "-format=lcov", f"-instr-profile={programs}/{name}.profdata", f"{programs}/{name}"]
    said = subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout
    found = {}
    for line in said.splitlines():
        if line.startswith("SF:"):
            here = found.setdefault(path_of(line[3:]), {})
        elif line.startswith("DA:"):
            number, count = line[3:].split(",")[:2]
            here[int(number)] = max(here.get(int(number), 0), int(count))
    return found


def percent(reached, all_lines):
    return 100.0 * reached / all_lines if all_lines else 0.0


reasons = uncovered()
names = sorted(entry[:-len(".profdata")] for entry in os.listdir(programs) if entry.endswith(".profdata"))
if not names:
    failures.append("no fuzzer ran")
for name in names:
    sources = sources_of(name)
    if not sources:
        failures.append(f"{name} does not say what it is for")
        continue
    found = lines_of(name)
    total = reached = 0
    for path in sources:
        lines = found.get(path, {})
        if not lines:
            failures.append(f"{name} has nothing of {path}")
        hit = sum(1 for count in lines.values() if count)
        missed = sorted(number for number, count in lines.items() if not count)
        total += len(lines)
        reached += hit
        print(f"{name}: {percent(hit, len(lines)):.1f} % of {len(lines)} lines of {path}" +
              (f", not {' '.join(map(str, missed[:40]))}" if missed else ""))
    figure = percent(reached, total)
    print(f"{name}: {figure:.1f} %" + (f", as {reasons[name]}" if name in reasons else ""))
    if figure < GOAL and name not in reasons:
        failures.append(f"{name} reaches {figure:.1f} % of the lines that it is for")
    if figure >= GOAL and name in reasons:
        failures.append(f"{name} needs no reason any more")
for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
