#!/usr/bin/env python3
"""unsanitized.py told LIST LOG: compares the tests that skipped themselves for a sanitizer's sake, which their reasons name, with the
list: by ctest's log of its build.
unsanitized.py run LIST TESTS: runs those of the list that can do so under valgrind, in the folder of the built tests.

A line of the list is a name, or a pattern of names, and the reason:

    valgrind  Suite.Test      what the sanitizer can't bear
    neither   Suite.Other     what valgrind can't bear either

What skips without a line is a finding, and so is a line of which no test skips."""
import fnmatch
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SECONDS = 300  # for a test, most of which take some
ERRORS = 99  # the exit code of what valgrind finds


def read(path):
    lines = []
    for number, text in enumerate(Path(path).read_text().splitlines(), 1):
        if not text.strip() or text.startswith("#"):
            continue
        words = text.split(None, 2)
        if len(words) != 3 or words[0] not in ("valgrind", "neither"):
            sys.exit(f"{path}:{number}: a line is 'valgrind' or 'neither', a name and a reason")
        lines.append(words)
    return lines


def told(path, log):
    text = Path(log).read_text(errors="replace")
    skipped = set(re.findall(r"^\[ RUN      \] (\S+)\n(?:(?!\[ ).*\n)*?.*: Skipped\n.*sanitizer", text, re.M | re.I))
    lines = read(path)
    fits = lambda name, pattern: fnmatch.fnmatchcase(name, pattern)
    wrong = [f"{name} skips, and {path} has no reason" for name in sorted(skipped) if not any(fits(name, line[1]) for line in lines)]
    wrong += [f"{line[1]} does not skip, {path} says that it does" for line in lines if not any(fits(name, line[1]) for name in skipped)]
    print("\n".join(wrong + [f"  {len(skipped)} skip themselves, {len(wrong)} differ"]))
    return 1 if wrong else 0


def tests_of(program):
    said = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True).stdout
    suite = ""
    for line in said.splitlines():
        name = line.split("#")[0].rstrip()
        if line.startswith("  "):
            yield suite + name.strip()
        elif name.endswith("."):
            suite = name


def under_valgrind(program, name):
    """What went wrong; empty if nothing."""
    command = ["valgrind", "-q", f"--error-exitcode={ERRORS}", "./" + program.name, "--gtest_color=no", "--gtest_filter=" + name]
    try:
        ran = subprocess.run(command, cwd=program.parent, capture_output=True, text=True, errors="replace", timeout=SECONDS)
    except subprocess.TimeoutExpired:
        return f"takes more than {SECONDS} s"
    if ran.returncode == 0 and "[  PASSED  ] 1 test." in ran.stdout:
        return ""
    return f"status {ran.returncode}\n{ran.stdout}{ran.stderr}"


def run(path, tests):
    patterns = [line[1] for line in read(path) if line[0] == "valgrind"]
    programs = sorted(Path(tests).resolve().glob("*_tests"))
    jobs = [(program, name) for program in programs for name in tests_of(program) if any(fnmatch.fnmatchcase(name, pattern) for pattern in patterns)]
    missing = [pattern for pattern in patterns if not any(fnmatch.fnmatchcase(name, pattern) for _, name in jobs)]
    failed = [f"{pattern}: there is no such test" for pattern in missing]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for (_, name), wrong in zip(jobs, pool.map(lambda job: under_valgrind(*job), jobs)):
            if wrong:
                failed.append(f"{name}: {wrong}")
    print("\n".join(failed + [f"  {len(jobs)} under valgrind, {len(failed)} failed"]))
    return 1 if failed or not jobs else 0


if len(sys.argv) != 4 or sys.argv[1] not in ("told", "run"):
    sys.exit(__doc__)
sys.exit({"told": told, "run": run}[sys.argv[1]](*sys.argv[2:]))
