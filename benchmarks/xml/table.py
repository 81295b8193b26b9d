#!/usr/bin/env python3
"""table.py FILE: the results of xml_benchmark, reading compared with the bare parser on the same bytes, and its goal.

A time is the minimum of the repetitions, which other load affects least."""

import json
import sys

GOAL = 1.5  # of reading a record of so many messages
GOAL_MESSAGES = 1000


def main() -> int:
    with open(sys.argv[1], encoding="utf-8") as file:
        runs = [run for run in json.load(file)["benchmarks"] if run["run_type"] == "iteration"]
    best = {}
    for run in runs:
        name = tuple(run["run_name"].split("/"))
        if name not in best or run["cpu_time"] < best[name]["cpu_time"]:
            best[name] = run

    line = "{:10}{:>9}{:>13}{:>17}{:>12}{:>17}{:>13}{:>6}".format
    print(line("messages", "number", "write MB/s", "ns for each", "read MB/s", "ns for each", "beside the", "goal"))
    print(line("", "", "", "", "", "", "bare parser", ""))
    missed = 0
    for shape, number in sorted(({name[1:] for name in best}), key=lambda row: (row[0], int(row[1]))):
        write, read, bare = (best[kind, shape, number] for kind in ("Write", "Read", "ParserAlone"))
        ratio = read["cpu_time"] / bare["cpu_time"]
        goal = GOAL if int(number) == GOAL_MESSAGES else None
        missed += goal is not None and ratio > goal
        print(line(shape, number, *(cell for run in (write, read) for cell in
                                    (f"{run['bytes_per_second'] / 1e6:.0f}", f"{1e9 / run['items_per_second']:.0f}")),
                   f"{ratio:.2f}", goal or ""), "over" if goal and ratio > goal else "")
    print(f"{missed} goals missed" if missed else "all goals met")
    return 0


sys.exit(main())
