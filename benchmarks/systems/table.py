#!/usr/bin/env python3
"""table.py FILE: the rows of runs of Pace on two systems as a table, with the ratio of each. A line of the file is the heap, the
turn, the system, the row, its nanoseconds and its relation to its peer, with tabs between. The ratio is that of the relations in one
turn; a row is beyond the bound if the median and the lower quartile of the turns are."""

import statistics
import sys

BOUND = 1.3


def bound(row: str) -> bool:
    """Not the heaps themselves; nor large results, whose unused memory goes back to the system on Linux and is written here."""
    return not row.startswith("heap ") and not (row.startswith("encoding") and row.endswith("1 MiB"))


def main() -> int:
    numbers, rows = {}, []
    with open(sys.argv[1], encoding="utf-8") as file:
        for line in file:
            heap, turn, system, row, time, relation = line.rstrip("\n").split("\t")
            numbers.setdefault((heap, row, system), {})[int(turn)] = (float(time), float(relation))
            if row not in rows:
                rows.append(row)

    def ratios(heap: str, row: str) -> list[float]:
        linux, windows = numbers[heap, row, "linux"], numbers[heap, row, "windows"]
        if linux.keys() != windows.keys():
            raise SystemExit(f"table.py: {row} was not measured in each turn on both systems")
        return statistics.quantiles([windows[turn][1] / linux[turn][1] for turn in linux], n=4, method="inclusive")

    def shown(system: str, row: str) -> str:
        time, relation = (statistics.median(column) for column in zip(*numbers["pool", row, system].values()))
        if row.startswith("buffer"):
            return f"{relation:.2f}"
        return f"{time:,.1f}" if time < 1000 else f"{time:,.0f}"

    print("| Row | Linux | Wine | ratio, quartiles | with the systems' heaps |")
    print("|---|---:|---:|---:|---:|")
    beyond = []
    for row in rows:
        low, middle, high = ratios("pool", row)
        if bound(row) and low > BOUND:
            beyond.append(row)
        same_heap = "" if row.startswith("heap ") else f"{middle:.2f} ({low:.2f} to {high:.2f})"
        print(f"| {row} | {shown('linux', row)} | {shown('windows', row)} | {same_heap} | {ratios('system', row)[1]:.2f} |")
    for row in beyond:
        print(f"{row}: beyond {BOUND}", file=sys.stderr)
    return 1 if beyond else 0


if __name__ == "__main__":
    sys.exit(main())
