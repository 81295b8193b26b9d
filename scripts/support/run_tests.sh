#!/bin/sh
# run_tests.sh PRESET [CTEST ARGUMENT...]: runs the tests of a built preset. Prints the progress; in the end the output of
# each failed test, the skipped ones with their reasons, and the numbers. Fails if a test fails or none is found.
set -eu
cd "$(dirname "$0")/../.."
. scripts/support/progress.sh
preset=$1
shift
for argument in "$@"; do
    case $argument in  # who asks for ctest's own output gets that
        -N | --show-only* | -V | -VV | --verbose | --extra-verbose | --print-labels | --help*)
            exec ctest --preset "$preset" -j "$(nproc)" "$@" ;;
    esac
done

progress_log=$(mktemp)
details=build/$preset/Testing/Temporary/LastTest.log
rm -f "$details"
status=0
run_logged "$progress_log" "Testing ($preset)" ctest --preset "$preset" -j "$(nproc)" --no-tests=error "$@" || status=$?
if ! grep -q 'tests passed, .* out of' "$progress_log" || [ ! -e "$details" ]; then
    cat "$progress_log" >&2
    [ "$status" -ne 0 ] || status=1
    exit "$status"
fi
awk -f scripts/support/test_summary.awk "$progress_log" "$details"
exit "$status"
