#!/usr/bin/env python3
"""table.py FILE...: the ratios of runs of BufferBenchmark, each beside its goal.

On one thread a time is the minimum of the repetitions, which other load affects least. With several threads it is the median, since
contention varies from run to run."""

import json
import statistics
import sys

# Work, whose time, over whose time, and the goal.
ROWS = []
for who, mutex, arena, heap, bump in (("single_thread", 0.6, 1.8, 0.35, 5), ("lock_free", 0.65, 1.9, 0.4, 5.5)):
    ROWS += [("1,000,000 pieces, one thread", f"pieces/{who}", f"pieces/{peer}", goal) for peer, goal in (
        ("monotonic_mutex", mutex), ("arena", arena), ("malloc", heap), ("bump", bump), ("mimalloc", None),
        ("monotonic", None), ("cas_bump", None))]
for threads in (2, 4):
    ROWS += [(f"1,000,000 pieces, {threads} threads", f"together/lock_free/{threads}/manual_time",
              f"together/{peer}/{threads}/manual_time", goal) for peer, goal in (("cas_bump", 1.15),
                                                                                ("monotonic_mutex", 1))]
for pieces in (1, 10, 100):
    ROWS += [(f"a region of {pieces}", f"region/{who}/{pieces}", f"region/{peer}/{pieces}", goal)
             for who in ("single_thread", "lock_free") for peer, goal in (("monotonic", 1), ("monotonic_heap", None),
                                                                      ("cas_bump_heap", None))]
ROWS += [("1,000,000 pieces, fresh memory", f"fresh/{who}", "fresh/monotonic", 1.1)
         for who in ("single_thread", "lock_free")]


def main() -> int:
    runs = []
    for name in sys.argv[1:]:
        with open(name, encoding="utf-8") as file:
            runs += [run for run in json.load(file)["benchmarks"] if run["run_type"] == "iteration"]
    spent, held = {}, {}
    for run in runs:
        name = run["run_name"]
        together = name.endswith("manual_time")
        spent.setdefault(name, []).append(run["real_time"] if together else run["cpu_time"])
        if "held" in run:
            held[name.split("/")[1]] = run["held"]
    times = {name: statistics.median(all) if name.endswith("manual_time") else min(all) for name, all in spent.items()}

    missed = 0
    line = "{:32}{:16}{:18}{:>10}{:>8}{:>7}".format
    print(line("work", "buffer", "beside", "time", "ratio", "goal"))
    rows = [(work, mine.split("/")[1], peer.split("/")[1], f"{times[mine] / 1e6:.2f} ms"
             if times[mine] > 1e5 else f"{times[mine]:.0f} ns", times[mine] / times[peer], goal)
            for work, mine, peer, goal in ROWS if mine in times and peer in times]
    rows += [("memory held for 10 MB", who, "what was asked", "", ratio, 1.5) for who, ratio in held.items()]
    for work, mine, peer, time, ratio, goal in rows:
        over = goal is not None and ratio > goal
        missed += over
        print(line(work, mine, peer, time, f"{ratio:.2f}", goal or ""), "over" if over else "")
    print(f"{missed} of {sum(row[5] is not None for row in rows)} goals missed" if missed else "all goals met")
    return 0


sys.exit(main())
