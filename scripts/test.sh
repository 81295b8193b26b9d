#!/bin/sh
# test.sh [--preset windows] [CTEST ARGUMENT...]: installs what is missing, builds everything and runs every test; those of
# the preset "windows" under Wine.
set -eu
cd "$(dirname "$0")/.."
if [ "${1:-}" = --preset ]; then
    [ "${2:-}" = windows ] || { echo "test.sh: no preset \"${2:-}\" has tests of its own: windows" >&2; exit 2; }
    shift 2
    scripts/setup.sh windows
    ZBASE_PRESET=windows scripts/build.sh
    exec scripts/windows/run_tests.sh "$@"
fi
scripts/setup.sh test
scripts/build.sh
exec scripts/support/run_tests.sh release "$@"
