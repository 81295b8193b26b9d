#!/bin/sh
# run_tests.sh [CTEST ARGUMENT...]: runs the tests of the preset "windows", or that of ZBASE_PRESET, which is built, under Wine:
# one process for each test program, since to start one takes longer than most tests. Tells what failed, and the numbers.
set -eu
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh
progress_log=$(mktemp)
preset=${ZBASE_PRESET:-windows}
details=build/$preset/Testing/Temporary/LastTest.log
rm -f "$details"
scripts/windows/wine.sh cmd /c exit
status=0
run_logged "$progress_log" "Testing ($preset)" ctest --preset "$preset" -j "$(nproc)" --no-tests=error "$@" || status=$?
[ -e "$details" ] || { cat "$progress_log" >&2; exit 1; }
awk '
    /^\[ RUN      \]/ { said = "" }
    { sub(/\r$/, ""); said = said $0 "\n" }
    /^\[  FAILED  \] [A-Za-z0-9_]+\.[A-Za-z0-9_\/]+ \([0-9]+ ms\)/ { printf "%s", said; ++failed }
    /^\[  FAILED  \] .*, where / { printf "%s", said; ++failed }
    /^\[==========\] [0-9]+ tests? from .* ran\./ { all += $2; ++programs }
    /^\[  PASSED  \] / { passed += $4 }
    /^\[  SKIPPED \] [0-9]+ tests?, listed below/ { skipped += $4 }
    END { printf "%d tests of %d programs ran: %d passed, %d failed, %d skipped themselves\n", all, programs, passed, failed, skipped }
' "$details"
echo "$(grep -c '^[A-Z*]' tests/support/windows/skipped.txt || :) skipped by name: tests/support/windows/skipped.txt"
echo "$(grep -c . "build/$preset/tests/not-built.txt" || :) sources not built: build/$preset/tests/not-built.txt"
[ "$status" -eq 0 ] || grep -E '^[ \t]+[0-9]+ - |\(Failed\)|Timeout|SEGFAULT|Exit code' "$progress_log" || :
exit "$status"
