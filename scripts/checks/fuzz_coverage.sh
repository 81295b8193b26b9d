#!/bin/bash
# fuzz_coverage.sh: builds the fuzzers so that they count lines, runs each over its seeds, what a soak has learnt
# (build/fuzz-corpus), and ZBASE_FUZZ_RUNS inputs more, and prints the lines that it reached of those it is for. Less than 95 %
# fails, unless fuzz/uncovered.txt has a reason. ZBASE_FUZZERS has the names of some, instead of all.
set -euo pipefail
cd "$(dirname "$0")/../.."
programs=build/fuzz-coverage/fuzz
ZBASE_PRESET=fuzz-coverage scripts/build.sh ${ZBASE_FUZZERS:-fuzzers}
rm -f "$programs"/*.profraw "$programs"/*.profdata
export ZBASE_FUZZ_CORPUS=${ZBASE_FUZZ_CORPUS:-$PWD/build/fuzz-corpus}
scripts/checks/fuzz.sh "$programs" -runs="${ZBASE_FUZZ_RUNS:-20000}"
for profile in "$programs"/*.profraw; do
    llvm-profdata-16 merge -o "${profile%.profraw}.profdata" "$profile"
done
scripts/checks/fuzz_coverage.py "$programs"
