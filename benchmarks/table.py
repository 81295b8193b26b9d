#!/usr/bin/env python3
"""table.py [--check] [--docs] BENCHMARK=FILE...: the results of benchmarks, with the goals of goals.tsv.

A file has the lines of benchmarks/support/Beside.h. --check fails where a goal is missed by more than the spread of the
measurement; --docs writes docs/performance.md and the plots beside it, for which all benchmarks must be given."""

import math
import os
import pathlib
import platform
import subprocess
import sys
from typing import NamedTuple

HERE = pathlib.Path(__file__).parent
DOCS = HERE.parent / "docs"
MARK = "<!-- measured -->"
PACKAGES = ("g++", "libc6", "libicu-dev", "libabsl-dev", "libfmt-dev", "uuid-dev")


class Goal(NamedTuple):
    measure: str  # speed, time, GB/s or ns
    value: float
    beside: str
    reason: str

    @property
    def is_least(self):
        return self.measure in ("speed", "GB/s")


class Row(NamedTuple):
    octets: int
    ours: float  # nanoseconds, as is the next
    peers: float
    ratio: float  # of our time to the peer's, with its quartiles
    low: float
    high: float

    def measured(self, measure):
        """The value, and where half of all rounds lie."""
        if measure == "time":
            return self.ratio, self.low, self.high
        if measure == "speed":
            return 1 / self.ratio, 1 / self.high, 1 / self.low
        value = self.ours if measure == "ns" else self.octets / self.ours
        part = self.low / self.ratio, self.high / self.ratio
        return value, *sorted((value * part[0], value * part[1]))


def read_goals():
    goals = {}
    for line in (HERE / "goals.tsv").read_text(encoding="utf-8").splitlines():
        if not line.startswith("#"):
            benchmark, row, measure, value, beside, reason = line.split("\t")
            goals[benchmark, row] = Goal(measure, float(value), beside, reason)
    return goals


def read_rows(benchmark, name):
    rows = {}
    for line in pathlib.Path(name).read_text(encoding="utf-8").splitlines():
        row, octets, *numbers = line.split("\t")
        rows[benchmark, row] = Row(int(octets), *map(float, numbers))
    return rows


def verdict(goal, measured):
    """"", "near" where the goal lies within the spread, or "missed"."""
    value, low, high = measured
    if (value >= goal.value) if goal.is_least else (value <= goal.value):
        return ""
    return "near" if (high >= goal.value if goal.is_least else low <= goal.value) else "missed"


def speed(row):
    if row.octets:
        return f"{row.octets / row.ours:.2f} GB/s"
    return f"{row.ours / 1000:.1f} us" if row.ours >= 10000 else f"{row.ours:.0f} ns"


def tell(rows, goals):
    missed = []
    line = "{:10}{:46}{:>12}{:>8}{:>18}{:>9}  {}".format
    print(line("", "", "ours", "is", "half of all in", "goal", ""))
    for key, row in rows.items():
        goal = goals.get(key)
        if goal is None:
            print(line(*key, speed(row), f"{1 / row.ratio:.2f}", "", "", "of the peer's speed"))
            continue
        value, low, high = row.measured(goal.measure)
        judged = verdict(goal, (value, low, high))
        missed += [key] if judged == "missed" else []
        beside = f"of the {goal.measure} of {goal.beside}" if goal.beside else goal.measure
        print(line(*key, speed(row), f"{value:.2f}", f"{low:.2f} to {high:.2f}",
                   f"{'>=' if goal.is_least else '<='} {goal.value:g}", f"{beside} {judged}"))
    print(f"{len(missed)} goals missed by more than the spread" if missed else "all goals met, or within the spread")
    return missed


def machine():
    model = platform.processor()
    flags = ""
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        name, _, value = line.partition(":")
        model = value.strip() if name.strip() == "model name" else model
        flags = value if name.strip() == "flags" else flags
    kinds = [kind for kind in ("avx2", "avx512bw", "avx512_vbmi2") if kind in flags.split()]
    packages = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *PACKAGES], capture_output=True,
                              text=True, check=False).stdout.split("\n")
    load = ", ".join(f"{part:.1f}" for part in os.getloadavg())
    return (f"{model}, {os.cpu_count()} processors ({', '.join(kinds) or 'no vector extension of note'}), shared with "
            f"others: load {load} in the last 1, 5 and 15 minutes. {'; '.join(filter(None, packages))}.")


def document(rows, goals):
    lines = [MARK, "", machine(), ""]
    reasons = []
    for benchmark in dict.fromkeys(key[0] for key in rows):
        lines += [f"## {benchmark.capitalize()}", "", "| Work | Ours | Measured | Half of all rounds | Goal | Beside |",
                  "|---|---|---|---|---|---|"]
        for key, row in rows.items():
            goal = goals.get(key)
            if key[0] != benchmark or goal is None:
                continue
            value, low, high = row.measured(goal.measure)
            judged = verdict(goal, (value, low, high))
            limit = f"{'at least' if goal.is_least else 'at most'} {goal.value:g}"
            lines.append(f"| {key[1]} | {speed(row)} | {value:.2f}{' **' + judged + '**' if judged else ''} | "
                         f"{low:.2f} to {high:.2f} | {limit} | "
                         + (f"{goal.measure} of {goal.beside}" if goal.beside else goal.measure) + " |")
            if judged:
                reasons.append((f"{benchmark}: {key[1]}", goal.reason or "not explained yet"))
        lines.append("")
    if reasons:
        lines += ["## Why goals are missed", ""]
        told = {}
        for where, why in reasons:
            told.setdefault(why, []).append(where)
        lines += [f"- {'; '.join(where)}: {why}" for why, where in told.items()]
    page = DOCS / "performance.md"
    front = page.read_text(encoding="utf-8").split(MARK)[0]
    page.write_text(front + "\n".join(lines).rstrip() + "\n", encoding="utf-8")


# A plot: lengths to the right, octets per second upwards, both in powers; ours drawn through, ICU's dashed.
WIDTH, HEIGHT, LEFT, BOTTOM, TOP = 640, 360, 60, 40, 30


def plot(rows, script):
    points = {}
    for (benchmark, row), result in rows.items():
        work, name, *length = (row + ", ").split(", ")
        if benchmark == "text" and name == script:
            points.setdefault((work, "ours"), []).append((result.octets, result.octets / result.ours))
            points.setdefault((work, "ICU"), []).append((result.octets, result.octets / result.peers))
    lengths = [x for x, _ in points["decoding", "ours"]]
    span = math.log(lengths[-1] / lengths[0])

    def place(x, y):
        right = LEFT + (WIDTH - LEFT - 20) * math.log(x / lengths[0]) / span
        up = (math.log10(y) + 1.5) / 3.2  # 0.03 to 50 GB/s
        return f"{right:.1f},{HEIGHT - BOTTOM - (HEIGHT - BOTTOM - TOP) * up:.1f}"

    text = "<text x='{}' y='{}' font-size='12' font-family='sans-serif' text-anchor='{}' fill='{}'>{}</text>".format
    svg = [f"<svg xmlns='http://www.w3.org/2000/svg' width='{WIDTH}' height='{HEIGHT}'>",
           f"<rect width='{WIDTH}' height='{HEIGHT}' fill='white'/>",
           text(WIDTH / 2, 18, "middle", "black", f"{script}: GB/s of UTF-8 over the length in octets")]
    for value in (0.1, 0.3, 1, 3, 10, 30):
        start, end = place(lengths[0], value), place(lengths[-1], value)
        svg.append(f"<path d='M{start} L{end}' stroke='#ddd'/>")
        svg.append(text(LEFT - 8, float(start.split(",")[1]) + 4, "end", "black", f"{value:g}"))
    for length in lengths:
        name = f"{length}" if length < 1000 else f"{length >> 10} Ki" if length < 1 << 20 else f"{length >> 20} Mi"
        svg.append(text(place(length, 1).split(",")[0], HEIGHT - BOTTOM + 18, "middle", "black", name))
    for index, ((work, whose), line) in enumerate(points.items()):
        colour = "#1565c0" if work == "decoding" else "#c62828"
        dashes = "" if whose == "ours" else " stroke-dasharray='5 4'"
        path = " ".join(place(x, y) for x, y in line)
        svg.append(f"<polyline points='{path}' fill='none' stroke='{colour}' stroke-width='2'{dashes}/>")
        across = LEFT + 10 + index * 140
        svg.append(f"<path d='M{across},{HEIGHT - 10} h24' stroke='{colour}' stroke-width='2'{dashes}/>")
        svg.append(text(across + 30, HEIGHT - 6, "start", "black", f"{work}, {whose}"))
    (DOCS / "performance").mkdir(exist_ok=True)
    (DOCS / "performance" / f"{script.lower()}.svg").write_text("\n".join([*svg, "</svg>", ""]), encoding="utf-8")


def main():
    options = {word for word in sys.argv[1:] if word.startswith("--")}
    rows = {}
    for argument in sys.argv[1:]:
        if argument not in options:
            rows.update(read_rows(*argument.split("=", 1)))
    goals = read_goals()
    missed = tell(rows, goals)
    unmeasured = [key for key in goals if key[0] in {key[0] for key in rows} and key not in rows]
    if unmeasured:
        print("no such row: ", unmeasured, file=sys.stderr)
    if "--docs" in options:
        document(rows, goals)
        for script in ("ASCII", "French", "Cyrillic", "Chinese", "emoji"):
            plot(rows, script)
    return 1 if unmeasured or ("--check" in options and missed) else 0


sys.exit(main())
