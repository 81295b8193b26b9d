#!/usr/bin/env python3
"""environment_tests.py LIST [--filter FILTER] [--whole] PROGRAM... -- [COMMAND...]: runs the test programs, each by COMMAND if there is one,
and compares what differs from a machine that has everything with the list of one environment.

A line of the list is how a test ends, its name or a pattern of names, and the reason:

    fails   Suite.Test      why this can't hold there
    ends    Suite.*         the same for a test that takes its program along
    skips   */Suite.Test/*  a test that says by itself that it can't hold there
    either  Suite.Other     fails, skips or passes, as it happens
    unrun   Suite.Waits     a test that would wait long for what can't come there

The comparison fails for a test that fails, ends its program, hangs or skips without such a line (but not for one that skips
without the environment too), and for a line whose tests do not all end as it says."""
import argparse
import fnmatch
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
from concurrent.futures import ThreadPoolExecutor

SILENCE = float(os.environ.get("ZBASE_TEST_SECONDS", "120"))  # a test that takes longer hangs
LINE = re.compile(rb"^\[ +(RUN|OK|FAILED|SKIPPED) +\] ([^\s,]+)", re.M)
ENDS = {"OK": "passes", "FAILED": "fails", "SKIPPED": "skips"}


def tests_of(program, wanted):
    said = subprocess.run([program, "--gtest_list_tests", "--gtest_filter=" + wanted], capture_output=True, text=True, check=True).stdout
    names, suite = [], ""
    for line in said.splitlines():
        name = line.split("#")[0].rstrip()
        if line.startswith("  "):
            names.append(suite + name.strip())
        elif name.endswith("."):
            suite = name
    return names


def as_filter(names, everything):
    """Names as patterns, whole suites as one."""
    rest = set(everything) - set(names)
    occupied = {name.rsplit(".", 1)[0] for name in rest}
    return ":".join(dict.fromkeys(name if name.rsplit(".", 1)[0] in occupied else name.rsplit(".", 1)[0] + ".*" for name in names))


def run(command, program, names, everything):
    """How each test ended that was begun, and what it said. The last of them may have ended the program."""
    with tempfile.TemporaryFile() as output:
        # A group of its own, so that what a test started ends with it.
        child = subprocess.Popen(command + [program, "--gtest_color=no", "--gtest_filter=" + as_filter(names, everything)], cwd=os.path.dirname(program),
                                 stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, start_new_session=True)
        size, hangs = -1, False
        while True:
            try:
                status = child.wait(SILENCE)
                break
            except subprocess.TimeoutExpired:
                before, size = size, os.fstat(output.fileno()).st_size
                if before != size:
                    continue
                hangs = True
            os.killpg(child.pid, signal.SIGKILL)
            status = child.wait()
            break
        try:
            os.killpg(child.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        output.seek(0)
        said = output.read()
    ended, texts, begun, begin = {}, {}, None, 0
    known = set(names)
    for line in LINE.finditer(said):
        word, name = line[1].decode().strip(), line[2].decode()
        if name not in known:
            continue
        if word == "RUN":
            begun, begin = name, line.end()
        elif name == begun:
            ended[name], texts[name] = ENDS[word], said[begin:line.start()]
            begun = None
    if begun is not None:
        ended[begun], texts[begun] = ("hangs" if hangs else "ends"), said[begin:] + b"status %d\n" % status
    elif ended and (status < 0 or status > 0 and ENDS["FAILED"] not in ended.values()):
        # At the end of the program, or at the unload of what it has loaded.
        last = list(ended)[-1]
        ended[last], texts[last] = "ends", said[-2000:] + b"status %d behind the last test\n" % status
    return ended, texts, said, status


def run_all(command, program, names, everything):
    ended, texts, left = {}, {}, list(names)
    while left:
        now, its_texts, said, status = run(command, program, left, everything)
        ended |= now
        texts |= its_texts
        if not now:
            # Before the first test or between two.
            ended[left[0]], texts[left[0]] = "ends", said[-2000:] + b"no test began, status %d\n" % status
        left = [name for name in left if name not in ended]
    return ended, texts


def read_list(path):
    rows = []
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            fields = line.split(None, 2)
            if not fields or fields[0].startswith("#"):
                continue
            if len(fields) != 3 or fields[0] not in ("fails", "ends", "skips", "either", "unrun"):
                sys.exit(f"{path}:{number}: a line is how it ends, a test and a reason")
            rows.append((fields[0], fields[1], number))
    return rows


def first_row(rows, name):
    """The first line that has the test decides."""
    return next((row for row in rows if fnmatch.fnmatchcase(name, row[1])), None)


def main():
    arguments = sys.argv[1:]
    command = []
    if "--" in arguments:
        place = arguments.index("--")
        arguments, command = arguments[:place], arguments[place + 1:]
    parser = argparse.ArgumentParser()
    parser.add_argument("list")
    parser.add_argument("programs", nargs="+")
    parser.add_argument("--filter", default="*")
    parser.add_argument("--whole", action="store_true", help="each line of the list has to have a test")
    options = parser.parse_args(arguments)
    rows = read_list(options.list)

    used, programs, everything = set(), {}, {}
    for program in map(os.path.abspath, options.programs):
        names = []
        everything[program] = tests_of(program, "*")
        for name in tests_of(program, options.filter):
            row = first_row(rows, name)
            if row is not None and row[0] == "unrun":
                used.add(row)
            else:
                names.append(name)
        if names:
            programs[program] = names
    ended, texts, home = {}, {}, {}
    lock = threading.Lock()

    def one(program):
        now, its_texts = run_all(command, program, programs[program], everything[program])
        with lock:
            ended.update(now)
            texts.update(its_texts)
            home.update(dict.fromkeys(now, program))
            print(f"  {os.path.basename(program)}: {len(now)} tests", flush=True)

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(one, programs))

    wrong = []
    for name, how in ended.items():
        listed = first_row(rows, name)
        used.add(listed)
        if listed is not None and listed[0] == "either":
            if how in ("fails", "skips", "passes", "ends"):
                continue
        elif how == (listed[0] if listed else "passes"):
            continue
        # Each test holds alone, as ctest runs it.
        alone, its_texts, said, status = run(command, home[name], [name], everything[home[name]])
        again = alone.get(name, "ends")
        if again == (listed[0] if listed else "passes"):
            print(f"  {name}: {how} among the others of its program, not alone")
            continue
        if again == "skips" and listed is None and run([], home[name], [name], everything[home[name]])[0].get(name) == "skips":
            continue
        wrong.append(name)
        where = f", but {options.list}:{listed[2]} says it {listed[0]}" if listed and listed[0] != "either" else ""
        print(f"== {name} {again}{where}")
        if again != "passes":
            text = its_texts.get(name, said).decode("utf-8", "replace").strip().splitlines()
            print("\n".join("    " + line[:300] for line in text[-int(os.environ.get("ZBASE_TEST_LINES", "12")):]))
        sys.stdout.flush()
    if options.whole:
        for row in rows:
            if row not in used:
                wrong.append(row[1])
                print(f"== {options.list}:{row[2]}: there is no such test, or an earlier line has it: {row[1]}")
    counts = {}
    for how in ended.values():
        counts[how] = counts.get(how, 0) + 1
    print("  " + ", ".join(f"{count} {how.replace('passes', 'pass').replace('fails', 'fail').replace('skips', 'skip').replace('ends', 'end').replace('hangs', 'hang')}" for how, count in sorted(counts.items(), key=lambda item: (-item[1], item[0]))))
    if wrong:
        print(f"{len(wrong)} differ from {options.list}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
