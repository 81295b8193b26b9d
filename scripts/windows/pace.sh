#!/bin/sh
# pace.sh [TURNS]: how fast the library is under Wine beside the same code on Linux: conversions, records, and the lock-free
# buffer in relation to the bare interlocked operation. The two run in turn. With one heap for both ("pool") a row beyond 1.3 by
# more than its spread fails. With the heaps of the systems it is only told: Wine's own takes part in these. Wants a calm machine.
set -eu
cd "$(dirname "$0")/../.."
turns=${1:-9}
for preset in release windows; do
    [ -e build/$preset/build.ninja ] || cmake --preset $preset >/dev/null
    cmake --build build/$preset --target Pace >&2
done
program=$(find build/release -name Pace -type f)
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
scripts/windows/wine.sh cmd /c exit

for turn in $(seq "$turns"); do
    for heap in pool system; do
        "$program" $heap | sed "s/^/$heap\t$turn\tlinux\t/"
        scripts/windows/wine.sh build/windows/bin/Pace.exe $heap | tr -d '\r' | sed "s/^/$heap\t$turn\twindows\t/"
    done
done >"$place/rows"
python3 benchmarks/systems/table.py "$place/rows"
